#include "cgisupport/cgi_pages.h"

#include <cerrno>
#include <cstdio>
#include <functional>
#include <string>

#include <gtest/gtest.h>

namespace storegen {
namespace {

const std::string kMail =
    "Please send E-Mail to <A HREF=\"mailto:a@b.c\">\n"
    "a@b.c</A> and note the Browser you are using and the\n"
    "page you were on that caused the error\n";

std::string Stdout(const std::function<void()>& fn) {
  ::testing::internal::CaptureStdout();
  fn();
  return ::testing::internal::GetCapturedStdout();
}

std::string ErrorPage(const std::string& title, const std::string& rest) {
  return "Content-type: text/html\n\n<HTML>\n<HEAD>\n<TITLE>Error - " + title +
         "</TITLE>\n</HEAD>\n<BODY BGCOLOR=\"ffffff\">\n<H1>" + title + "</H1>" + rest +
         "</BODY>\n</HTML>\n";
}

// The closing body tag keeps the lone '%' its format has always held.
std::string ReadFilePage(const std::string& what, const std::string& text) {
  return "Content-type: text/html\n\n<HTML>\n<HEAD>\n<TITLE>Error - Tillbox ReadFile " + what +
         "</TITLE>\n</HEAD>\n<BODY>\n<H1>Tillbox ReadFile " + what + "</H1>\n" + text +
         "</BODY>%\n</HTML>\n";
}

TEST(CgiPages, ErrorPagesExactBytes) {
  const std::string reload =
      "<p>\nNote that in some browsers you may have to \"reload\" the source page to\n"
      "get your browser to post the request correctly\n";
  const std::string method = "Bad Script Referencing Method; REQUEST_METHOD";
  const std::string method_msg = "This script should be referenced with a METHOD of POST.<br>\n";
  const std::string memory = "Till Box's ReadFile was unable to allocate memory<br>\n";
  const std::string open =
      "Till Box's ReadFile was unable to open the file /x<br>\nError Number was 2";
  const struct {
    std::function<void()> call;
    std::string page;
  } cases[] = {
      {[] { ReportError("T", "M", nullptr, nullptr, nullptr); }, ErrorPage("T", "M<br>\n<p>\n")},
      {[] { ReportError("T", "M", "100%% %-4s|%.2s|%d", "ab", nullptr); },
       ErrorPage("T", "M<br>\n100% ab  |%.2s|%d<br>\n<p>\n")},
      {[] { ReportError("T", "M", "50% %s off", nullptr, nullptr); },  // verbatim
       ErrorPage("T", "M<br>\n50% %s off<br>\n<p>\n")},
      {[] { ReportError("T", "M", nullptr, nullptr, "a@b.c"); },
       ErrorPage("T", "M<br>\n<p>\n" + kMail + reload)},
      {[] { RequestMethodError("GET"); },
       ErrorPage(method, method_msg + "Requested method was GET<br>\n<p>\n")},
      {[] { RequestMethodError(nullptr); },
       ErrorPage(method, method_msg + "Request method was missing<br>\n<p>\n")},
      {[] { ContentTypeError("text/plain"); },
       ErrorPage("Bad Content Type; CONTENT_TYPE",
                 "This program can only be used to decode form results.<br>\n"
                 "Passed Content Type was text/plain<br>\n<p>\n")},
      {[] { ContentLengthError(); },
       ErrorPage("Missing Content Length",
                 "Content length environment variable was missing.<br>\n<p>\n")},
      {[] { ReadFileMemoryError(nullptr); }, ReadFilePage("Memory Error", memory)},
      {[] { errno = ENOENT, ReadFileOpenError("a@b.c", "/x"); },
       ReadFilePage("Open Error", open + "<p>\n" + kMail)}};
  for (std::size_t i = 0; i < std::size(cases); ++i)
    EXPECT_EQ(Stdout(cases[i].call), cases[i].page) << "case " << i;
}

TEST(CgiPages, KeyNamesEscapedAndTheFpCgiStream) {
  EXPECT_EQ(Stdout([] { PrintKeyNameToBrowser("<KEY>a<<b"); }), "&lt;KEY&gt;a&lt;&lt;b");

  // With fpCGI set, every page goes there instead of to standard output.
  FILE* f = std::tmpfile();
  ASSERT_NE(f, nullptr);
  fpCGI = f;
  std::string out = Stdout([&] {
    ReportError("T", "M", "d %s", "x", "a@b.c");
    ReadFileMemoryError("a@b.c");
    ReadFileOpenError(nullptr, "p");
    PrintKeyNameToBrowser("<k>");
  });
  fpCGI = nullptr;
  EXPECT_EQ(out, "");
  std::string written(std::ftell(f), '\0');
  std::rewind(f);
  written.resize(std::fread(written.data(), 1, written.size(), f));
  std::fclose(f);
  EXPECT_EQ(written.find("Content-type: text/html\n\n<HTML>\n<HEAD>\n<TITLE>Error - T<"), 0u);
  EXPECT_TRUE(written.ends_with("</HTML>\n&lt;k&gt;")) << written;
}

}  // namespace
}  // namespace storegen
