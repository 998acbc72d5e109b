#include "cgisupport/cgi_pages.h"

#include <cerrno>
#include <cstdio>
#include <functional>
#include <string>

#include <gtest/gtest.h>

namespace storegen {
namespace {

const char kReportHead[] =
    "Content-type: text/html\n\n"
    "<HTML>\n<HEAD>\n<TITLE>Error - T</TITLE>\n</HEAD>\n<BODY BGCOLOR=\"ffffff\">\n"
    "<H1>T</H1>M<br>\n";
const char kMailParagraph[] =
    "Please send E-Mail to <A HREF=\"mailto:a@b.c\">\n"
    "a@b.c</A> and note the Browser you are using and the\n"
    "page you were on that caused the error\n";
const char kReportTail[] = "</BODY>\n</HTML>\n";

// What |fn| writes to standard output (fpCGI unset).
std::string Stdout(const std::function<void()>& fn) {
  ::testing::internal::CaptureStdout();
  fn();
  return ::testing::internal::GetCapturedStdout();
}

TEST(ReportError, DetailAndMailVariants) {
  const std::string mail_block = std::string(kMailParagraph) +
                                 "<p>\n"
                                 "Note that in some browsers you may have to \"reload\" the source "
                                 "page to\n"
                                 "get your browser to post the request correctly\n";
  struct Case {
    const char* format;
    const char* arg;
    const char* mail;
    std::string middle;
  } cases[] = {
      {nullptr, nullptr, nullptr, "<p>\n"},
      {"", "x", nullptr, "<p>\n"},
      {"Got %s here", "it", nullptr, "Got it here<br>\n<p>\n"},
      {"100%% %-4s|%.2s|", "ab", nullptr, "100% ab  |%.2s|<br>\n<p>\n"},
      {"Got %d and %s", "x", nullptr, "Got %d and x<br>\n<p>\n"},
      {"50% %s off", nullptr, nullptr, "50% %s off<br>\n<p>\n"},  // verbatim without argument
      {nullptr, nullptr, "a@b.c", "<p>\n" + mail_block},
  };
  for (const auto& c : cases) {
    std::string out = Stdout([&] { ReportError("T", "M", c.format, c.arg, c.mail); });
    EXPECT_EQ(out, kReportHead + c.middle + kReportTail) << (c.format ? c.format : "(null)");
  }
}

TEST(ReportError, ReturnsTheLastPrint) {
  int rc = 0;
  Stdout([&] { rc = ReportError("T", "M", nullptr, nullptr, nullptr); });
  EXPECT_EQ(rc, 8);  // "</HTML>\n"
}

TEST(RequestErrors, TitlesMessagesAndDetails) {
  auto page = [](const std::string& title, const std::string& message, const std::string& detail) {
    return "Content-type: text/html\n\n<HTML>\n<HEAD>\n<TITLE>Error - " + title +
           "</TITLE>\n</HEAD>\n<BODY BGCOLOR=\"ffffff\">\n<H1>" + title + "</H1>" + message +
           "<br>\n" + detail + "<p>\n</BODY>\n</HTML>\n";
  };
  const std::string method_title = "Bad Script Referencing Method; REQUEST_METHOD";
  const std::string method_msg = "This script should be referenced with a METHOD of POST.";
  const std::string type_title = "Bad Content Type; CONTENT_TYPE";
  const std::string type_msg = "This program can only be used to decode form results.";
  EXPECT_EQ(Stdout([] { RequestMethodError("GET"); }),
            page(method_title, method_msg, "Requested method was GET<br>\n"));
  EXPECT_EQ(Stdout([] { RequestMethodError(nullptr); }),
            page(method_title, method_msg, "Request method was missing<br>\n"));
  EXPECT_EQ(Stdout([] { RequestMethodError(""); }),
            page(method_title, method_msg, "Request method was missing<br>\n"));
  EXPECT_EQ(Stdout([] { ContentTypeError("text/plain"); }),
            page(type_title, type_msg, "Passed Content Type was text/plain<br>\n"));
  EXPECT_EQ(Stdout([] { ContentTypeError(""); }),
            page(type_title, type_msg, "Content type was missing<br>\n"));
  EXPECT_EQ(Stdout([] { ContentLengthError(); }),
            page("Missing Content Length", "Content length environment variable was missing.", ""));
}

TEST(ReadFilePages, ExactBytesWithAndWithoutMail) {
  const std::string memory_head =
      "Content-type: text/html\n\n<HTML>\n<HEAD>\n"
      "<TITLE>Error - Tillbox ReadFile Memory Error</TITLE>\n</HEAD>\n<BODY>\n"
      "<H1>Tillbox ReadFile Memory Error</H1>\n"
      "Till Box's ReadFile was unable to allocate memory<br>\n";
  // The closing body tag keeps the lone '%' that its format has always held.
  const std::string tail = "</BODY>%\n</HTML>\n";
  EXPECT_EQ(Stdout([] { ReadFileMemoryError(nullptr); }), memory_head + tail);
  EXPECT_EQ(Stdout([] { ReadFileMemoryError("a@b.c"); }),
            memory_head + "<p>\n" + kMailParagraph + tail);

  const std::string open_head =
      "Content-type: text/html\n\n<HTML>\n<HEAD>\n"
      "<TITLE>Error - Tillbox ReadFile Open Error</TITLE>\n</HEAD>\n<BODY>\n"
      "<H1>Tillbox ReadFile Open Error</H1>\n"
      "Till Box's ReadFile was unable to open the file /x/y.html<br>\n"
      "Error Number was 2";
  EXPECT_EQ(Stdout([] {
              errno = ENOENT;
              ReadFileOpenError(nullptr, "/x/y.html");
            }),
            open_head + tail);
  EXPECT_EQ(Stdout([] {
              errno = ENOENT;
              ReadFileOpenError("a@b.c", "/x/y.html");
            }),
            open_head + "<p>\n" + kMailParagraph + tail);
}

TEST(JavaScriptAlert, DoublesBackslashesAndStopsAt255) {
  const std::string head = "Content-type: text/html\n\n<HTML>\n<HEAD>\n<SCRIPT>\nalert(\"";
  const std::string tail = "\")\nhistory.back()\n</SCRIPT></HTML>\n";
  EXPECT_EQ(Stdout([] { JavaScriptAlert("C:\\dir \"q\""); }), head + "C:\\\\dir \"q\"" + tail);

  const std::string long_text(300, 'x');
  EXPECT_EQ(Stdout([&] { JavaScriptAlert(long_text.c_str()); }),
            head + std::string(255, 'x') + tail);
  // A backslash taken at count 254 still gets its second copy.
  const std::string edge = std::string(254, 'x') + "\\yz";
  EXPECT_EQ(Stdout([&] { JavaScriptAlert(edge.c_str()); }),
            head + std::string(254, 'x') + "\\\\" + tail);
}

TEST(DumpEnvAndKeyNames, Output) {
  const char* list[] = {"A=1", "B=", nullptr};
  EXPECT_EQ(Stdout([&] { DumpEnv(list); }), "A=1<br>\nB=<br>\n");
  struct Case {
    const char* in;
    const char* out;
  } cases[] = {
      {"<KEY>", "&lt;KEY&gt;"}, {"a<<b>c", "a&lt;&lt;b&gt;c"}, {"plain", "plain"}, {"", ""}};
  for (const auto& c : cases)
    EXPECT_EQ(Stdout([&] { PrintKeyNameToBrowser(c.in); }), c.out) << c.in;
  EXPECT_STREQ(GetCgiLibVersion(), "cgilib - Version 2.2.0.0");
}

TEST(CgiStream, EverythingGoesToFpCgiWhenSet) {
  FILE* f = std::tmpfile();
  ASSERT_NE(f, nullptr);
  const char* list[] = {"A=1", nullptr};
  fpCGI = f;
  std::string out = Stdout([&] {
    ReportError("T", "M", "d %s", "x", "a@b.c");
    ContentLengthError();
    ReadFileMemoryError("a@b.c");
    ReadFileOpenError(nullptr, "p");
    JavaScriptAlert("hi");
    DumpEnv(list);
    PrintKeyNameToBrowser("<k>");
  });
  fpCGI = nullptr;
  EXPECT_EQ(out, "");
  std::rewind(f);
  std::string written;
  for (int c; (c = std::fgetc(f)) != EOF;)
    written += static_cast<char>(c);
  std::fclose(f);
  EXPECT_EQ(written.substr(0, sizeof kReportHead - 1), kReportHead);
  EXPECT_NE(written.find("alert(\"hi\")"), std::string::npos);
  const std::string end = "history.back()\n</SCRIPT></HTML>\nA=1<br>\n&lt;k&gt;";
  ASSERT_GE(written.size(), end.size());
  EXPECT_EQ(written.substr(written.size() - end.size()), end);
}

}  // namespace
}  // namespace storegen
