// Progress of a static run, for a person watching it: pages written, the
// pages the run knows of, and the rate, redrawn in place on standard error
// when standard error is a terminal. Nothing is written otherwise, and never
// anything on standard output, which carries the run's own messages. Not
// reentrant.
#ifndef STOREGEN_PAGEGEN_PROGRESS_H_
#define STOREGEN_PAGEGEN_PROGRESS_H_

#include <cstdint>

namespace storegen {

// Starts showing progress on |fd| when it is a terminal (else nothing is
// shown until the next ProgressBegin), with no pages planned yet.
void ProgressBegin(int fd);
// Adds |pages| to the pages the run expects to write. The further pages of
// a list and pages written from a list block are added as they come.
void ProgressPlanPages(int64_t pages);
// A page has been written.
void ProgressPageWritten();
// For a child process that writes pages beside its parent: pages are still
// counted, but nothing is shown.
void ProgressSilence();
// The pages counted as written so far (0 when not showing).
int64_t ProgressPagesWritten();
// Counts |pages| written elsewhere (by a child process) in.
void ProgressAddWritten(int64_t pages);
// Shows the run's figures ("N pages in S s, R pages/s") and ends the line;
// nothing when not showing.
void ProgressEnd();

}  // namespace storegen

#endif  // STOREGEN_PAGEGEN_PROGRESS_H_
