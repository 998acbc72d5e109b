// Messages for the person who runs the program, on standard error.
//
// An error message of the run has two forms. With "-v" it goes to standard
// output in the words the program has always printed there; without "-v" a
// line goes to standard error instead, naming the file (and line) that
// caused it and saying what to do. Warnings, about mistakes that change no
// result, exist only on standard error, with or without "-v". Standard
// output never gets anything it would not get without this module.
//
// Lines read "storegen: FILE:LINE: text" (or "storegen: FILE: text", or
// "storegen: text"), warnings with "warning: " in front of the text. A line
// that was shown once is not shown again. Not reentrant.
#ifndef STOREGEN_CGISUPPORT_DIAGNOSTICS_H_
#define STOREGEN_CGISUPPORT_DIAGNOSTICS_H_

#include <string>
#include <string_view>

namespace storegen {

// The file a message is about, and its line (0: not known). An empty file
// names none.
struct Where {
  std::string file;
  int line = 0;
};

// The name in front of every line ("storegen" until set), and the
// program's directory, which relative paths are taken from.
void SetDiagnosticProgram(std::string_view name, std::string_view dir);

// "relative paths are taken from the program's directory, DIR, not from the
// current directory", for messages about a file that was not found.
std::string ProgramDirectoryNote();

// Written in front of each line on standard error, for a terminal whose
// current line must be cleared first (a progress line); "" for none.
void SetDiagnosticLinePrefix(std::string_view prefix);

// An error message: with "-v", |verbose_format| printf'd to standard output
// as ever (nothing when it is null); without, |detail| about |where| on
// standard error. A null |verbose_format| puts |detail| on standard error in
// both modes.
void ReportError(const Where& where, std::string_view detail, const char* verbose_format, ...)
    __attribute__((format(printf, 3, 4)));

// ReportError for memory that ran out ("Out of memory" with "-v").
void ReportOutOfMemory();

// A warning about |where| on standard error, in both modes.
void ReportWarning(const Where& where, std::string_view detail);

// A line with no file, on standard error, in both modes (a summary).
void ReportNote(std::string_view detail);

// True the first time it is called with |key| in this process: for checks
// on paths taken once per page, so that a warning is worked out once.
bool FirstTime(std::string_view key);

// While |sink| is set, lines are appended to it (each ended by "\n", without
// the program name) instead of being written: a process that writes pages
// beside the run hands them over to be shown in page order. Null: written.
void CaptureDiagnostics(std::string* sink);

// Shows lines captured elsewhere, as if reported here (a line shown already
// is not shown again).
void ReplayDiagnostics(std::string_view lines);

// |path| made absolute against the current directory, for naming a file in
// a message.
std::string AbsolutePathForMessage(std::string_view path);

// Forgets what was shown and set: the start state.
void ResetDiagnostics();

}  // namespace storegen

#endif  // STOREGEN_CGISUPPORT_DIAGNOSTICS_H_
