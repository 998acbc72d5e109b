#include "pagegen/progress.h"

#include <unistd.h>

#include <cstdio>
#include <ctime>

#include "cgisupport/diagnostics.h"

namespace storegen {
namespace {

constexpr double kRedrawSeconds = 0.1;

struct Progress {
  bool on = false;
  int fd = -1;
  int64_t planned = 0;
  int64_t written = 0;
  double start = 0;
  double drawn = 0;  // when the line was last drawn
};

Progress g_progress;

double Now() {
  timespec ts{};
  clock_gettime(CLOCK_MONOTONIC, &ts);
  return static_cast<double>(ts.tv_sec) + static_cast<double>(ts.tv_nsec) / 1e9;
}

// Redraws the line in place: "\r" goes back to its start, "\033[K" clears
// what a longer earlier line left.
void Draw(double now, bool last) {
  Progress& p = g_progress;
  if (p.fd < 0) return;  // counting only
  const double elapsed = now - p.start;
  const double rate = elapsed > 0 ? static_cast<double>(p.written) / elapsed : 0;
  const int64_t total = p.planned > p.written ? p.planned : p.written;
  char line[128];
  int n =
      last ? std::snprintf(line, sizeof line, "\r%lld pages in %.1f s, %.0f pages/s\033[K\n",
                           static_cast<long long>(p.written), elapsed, rate)
           : std::snprintf(line, sizeof line, "\r%lld/%lld pages, %.0f pages/s\033[K",
                           static_cast<long long>(p.written), static_cast<long long>(total), rate);
  // A terminal that cannot be written to gets no further lines.
  if (n > 0 && write(p.fd, line, static_cast<std::size_t>(n)) < 0) p.on = false;
  p.drawn = now;
}

}  // namespace

void ProgressBegin(int fd) {
  g_progress = Progress();
  if (fd < 0 || !isatty(fd)) return;
  g_progress.on = true;
  g_progress.fd = fd;
  // A message written meanwhile first clears the progress line.
  SetDiagnosticLinePrefix("\r\033[K");
  g_progress.start = g_progress.drawn = Now();
}

void ProgressPlanPages(int64_t pages) {
  if (g_progress.on) g_progress.planned += pages;
}

void ProgressPageWritten() {
  Progress& p = g_progress;
  if (!p.on) return;
  ++p.written;
  double now = Now();
  if (now - p.drawn >= kRedrawSeconds) Draw(now, false);
}

void ProgressSilence() {
  g_progress.fd = -1;
}

int64_t ProgressPagesWritten() {
  return g_progress.written;
}

void ProgressAddWritten(int64_t pages) {
  if (!g_progress.on) return;
  g_progress.written += pages;
}

void ProgressEnd() {
  if (!g_progress.on) return;
  Draw(Now(), true);
  g_progress.on = false;
  SetDiagnosticLinePrefix("");
}

}  // namespace storegen
