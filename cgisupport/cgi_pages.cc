#include "cgisupport/cgi_pages.h"

#include <cerrno>
#include <cstdarg>
#include <cstring>
#include <string>

namespace storegen {

FILE* fpCGI = nullptr;

namespace {

constexpr char kNl = '\n';
constexpr std::size_t kAlertMax = 255;

FILE* Out() {
  return fpCGI != nullptr ? fpCGI : stdout;
}

const char* Text(const char* s) {
  return s != nullptr ? s : "(null)";
}

// printf to the CGI stream, format checked at compile time.
__attribute__((format(printf, 1, 2))) int Print(const char* format, ...) {
  va_list args;
  va_start(args, format);
  int n = std::vfprintf(Out(), format, args);
  va_end(args);
  return n;
}

// The same without the compile-time check, for the file-read pages' closing
// line, which has always been handed to the formatter with a lone '%' in it
// (the C library prints such a sequence as it stands).
int PrintUnchecked(const char* format, ...) {
  va_list args;
  va_start(args, format);
  int n = std::vfprintf(Out(), format, args);
  va_end(args);
  return n;
}

// Length of the "%s"-type conversion at |p| (which points at '%'): flags,
// width and precision digits, then 's'. 0 when it is anything else.
std::size_t StringConversionLength(const char* p) {
  std::size_t i = 1;
  while (p[i] != '\0' && std::strchr("-+ #0", p[i]) != nullptr)
    ++i;
  while (p[i] >= '0' && p[i] <= '9')
    ++i;
  if (p[i] == '.') {
    ++i;
    while (p[i] >= '0' && p[i] <= '9')
      ++i;
  }
  return p[i] == 's' ? i + 1 : 0;
}

// |format| applied to the one text argument |arg|, as printf would apply it
// when the format holds a single "%s"-type conversion. A conversion that has
// no argument left is kept as it stands instead of reading one that is not
// there.
std::string FormatWithOneText(const char* format, const char* arg) {
  std::string out;
  bool arg_used = false;
  for (const char* p = format; *p != '\0';) {
    if (*p != '%') {
      out += *p++;
      continue;
    }
    if (p[1] == '%') {
      out += '%';
      p += 2;
      continue;
    }
    std::size_t len = StringConversionLength(p);
    if (len == 0 || arg_used) {
      out += *p++;
      continue;
    }
    std::string conversion(p, len);
    int n = std::snprintf(nullptr, 0, conversion.c_str(), arg);
    if (n < 0) {
      out += conversion;
    } else {
      std::string piece(static_cast<std::size_t>(n) + 1, '\0');
      std::snprintf(piece.data(), piece.size(), conversion.c_str(), arg);
      piece.resize(static_cast<std::size_t>(n));
      out += piece;
    }
    arg_used = true;
    p += len;
  }
  return out;
}

// Mail paragraph and closing lines shared by the two file-read pages.
int FinishReadFilePage(const char* mail_address) {
  if (mail_address != nullptr) {
    Print("<p>\n");
    Print("Please send E-Mail to <A HREF=\"mailto:%s\">\n", mail_address);
    Print("%s</A> and note the Browser you are using and the\n", mail_address);
    Print("page you were on that caused the error\n");
  }
  PrintUnchecked("</BODY>%\n");
  return Print("</HTML>\n");
}

// Header, title and heading shared by the two file-read pages.
void StartReadFilePage(const char* what) {
  Print("Content-type: text/html\n\n");
  Print("<HTML>\n");
  Print("<HEAD>\n");
  Print("<TITLE>Error - Tillbox ReadFile %s</TITLE>\n", what);
  Print("</HEAD>\n");
  Print("<BODY>\n");
  Print("<H1>Tillbox ReadFile %s</H1>\n", what);
}

}  // namespace

int ReportError(const char* title, const char* message, const char* detail_format,
                const char* detail_arg, const char* mail_address) {
  Print("Content-type: text/html%c%c", kNl, kNl);
  Print("<HTML>%c", kNl);
  Print("<HEAD>%c", kNl);
  Print("<TITLE>Error - %s</TITLE>%c", Text(title), kNl);
  Print("</HEAD>%c", kNl);
  Print("<BODY BGCOLOR=\"ffffff\">%c", kNl);
  Print("<H1>%s</H1>", Text(title));
  Print("%s<br>\n", Text(message));
  if (detail_format != nullptr && *detail_format != '\0') {
    if (detail_arg != nullptr) {
      Print("%s", FormatWithOneText(detail_format, detail_arg).c_str());
      Print("<br>\n");
    } else {
      Print("%s<br>\n", detail_format);
    }
  }
  Print("<p>\n");
  if (mail_address != nullptr) {
    Print("Please send E-Mail to <A HREF=\"mailto:%s\">\n", mail_address);
    Print("%s</A> and note the Browser you are using and the\n", mail_address);
    Print("page you were on that caused the error\n");
    Print("<p>\n");
    Print("Note that in some browsers you may have to \"reload\" the source page to\n");
    Print("get your browser to post the request correctly\n");
  }
  Print("</BODY>%c", kNl);
  return Print("</HTML>%c", kNl);
}

int RequestMethodError(const char* method) {
  const char* title = "Bad Script Referencing Method; REQUEST_METHOD";
  const char* message = "This script should be referenced with a METHOD of POST.";
  if (method != nullptr && *method != '\0')
    return ReportError(title, message, "Requested method was %s", method, nullptr);
  return ReportError(title, message, "Request method was missing", nullptr, nullptr);
}

int ContentTypeError(const char* content_type) {
  const char* title = "Bad Content Type; CONTENT_TYPE";
  const char* message = "This program can only be used to decode form results.";
  if (content_type != nullptr && *content_type != '\0')
    return ReportError(title, message, "Passed Content Type was %s", content_type, nullptr);
  return ReportError(title, message, "Content type was missing", nullptr, nullptr);
}

int ContentLengthError() {
  return ReportError("Missing Content Length", "Content length environment variable was missing.",
                     nullptr, nullptr, nullptr);
}

int ReadFileMemoryError(const char* mail_address) {
  StartReadFilePage("Memory Error");
  Print("Till Box's ReadFile was unable to allocate memory<br>\n");
  return FinishReadFilePage(mail_address);
}

int ReadFileOpenError(const char* mail_address, const char* path) {
  int error = errno;
  StartReadFilePage("Open Error");
  Print("Till Box's ReadFile was unable to open the file %s<br>\n", Text(path));
  Print("Error Number was %i", error);
  return FinishReadFilePage(mail_address);
}

int JavaScriptAlert(const char* message) {
  std::string text;
  for (const char* p = Text(message); *p != '\0' && text.size() < kAlertMax; ++p) {
    text += *p;
    if (*p == '\\') text += '\\';
  }
  Print("Content-type: text/html\n\n");
  Print("<HTML>\n");
  Print("<HEAD>\n");
  Print("<SCRIPT>\n");
  Print("alert(\"%s\")\n", text.c_str());
  Print("history.back()\n");
  Print("</SCRIPT>");
  return Print("</HTML>\n");
}

int DumpEnv(const char* const* list) {
  int n = 0;
  for (; list != nullptr && *list != nullptr; ++list)
    n = Print("%s<br>\n", *list);
  return n;
}

int PrintKeyNameToBrowser(const char* text) {
  int n = 0;
  if (text == nullptr) return 0;
  for (const char* p = text; *p != '\0';) {
    std::size_t run = std::strcspn(p, "<>");
    if (run > 0) n = Print("%.*s", static_cast<int>(run), p);
    p += run;
    if (*p == '<') {
      n = Print("&lt;");
      ++p;
    } else if (*p == '>') {
      n = Print("&gt;");
      ++p;
    }
  }
  return n;
}

const char* GetCgiLibVersion() {
  return "cgilib - Version 2.2.0.0";
}

}  // namespace storegen
