// The pages a CGI program answers with when something goes wrong: complete
// HTML pages, HTTP header included, plus a JavaScript alert, an environment
// dump and an HTML-safe print. Every routine writes to fpCGI when it is set,
// else to standard output, and returns the result of its last print (the
// byte count of that print, or a negative value on a write error). A null
// text argument prints as "(null)", as the C library's "%s" does.
#ifndef STOREGEN_CGISUPPORT_CGI_PAGES_H_
#define STOREGEN_CGISUPPORT_CGI_PAGES_H_

#include <cstdio>

namespace storegen {

// Process-wide stream for CGI output; null (standard output) unless a caller
// sets it. Not owned here: whoever sets it closes it and resets it.
extern FILE* fpCGI;

// The general error page: header, title, "<H1>" heading, |message|, the
// detail line, then the mail paragraph when |mail_address| is non-null.
// The detail line is printed only for a non-empty |detail_format|: with a
// non-null |detail_arg| it is the format applied to that one text argument
// ("%%" and one "%s"-type conversion; any further conversion is printed as it
// stands), with a null |detail_arg| it is |detail_format| as plain text.
int ReportError(const char* title, const char* message, const char* detail_format,
                const char* detail_arg, const char* mail_address);

// Error pages for a wrong or missing REQUEST_METHOD / CONTENT_TYPE (null or
// empty prints the "missing" detail) and for a missing CONTENT_LENGTH.
int RequestMethodError(const char* method);
int ContentTypeError(const char* content_type);
int ContentLengthError();

// Pages for a failed whole-file read: out of memory, or |path| not openable
// (the page shows errno as it was on entry). |mail_address| may be null.
int ReadFileMemoryError(const char* mail_address);
int ReadFileOpenError(const char* mail_address, const char* path);

// A page that shows |message| in a JavaScript alert and sends the browser
// back. Backslashes are doubled; the escaped text stops once 255 characters
// were written (a doubled backslash may make it 256).
int JavaScriptAlert(const char* message);

// Prints each string of the null-terminated array |list| (e.g. environ) as
// "%s<br>\n". Returns 0 for an empty list.
int DumpEnv(const char* const* list);

// Prints |text| with '<' as "&lt;" and '>' as "&gt;". Returns 0 when nothing
// was printed.
int PrintKeyNameToBrowser(const char* text);

// "cgilib - Version 2.2.0.0" (static text).
const char* GetCgiLibVersion();

}  // namespace storegen

#endif  // STOREGEN_CGISUPPORT_CGI_PAGES_H_
