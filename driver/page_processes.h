// Writing the pages of a static run in two processes. The product pages are
// independent of each other and of the shop home page series: this process
// writes the shop home series and then product pages from the first on, a
// child process product pages from the last backwards, until the two meet.
// When the child is done, this process takes over what the child's pages did
// to the run's records (the error and delete lists, the secure files, the
// progress count) and the child's standard output, in page order. The run
// ends as if one process had written every page in order; if the child
// fails, this process writes the child's pages again itself.
#ifndef STOREGEN_DRIVER_PAGE_PROCESSES_H_
#define STOREGEN_DRIVER_PAGE_PROCESSES_H_

#include <cstddef>
#include <functional>
#include <vector>

namespace storegen {

struct SkuList;

// How many processes write |pages| product pages: 2 for a static run with
// enough pages on a machine with more than one processor, when the run is
// not verbose, reads the products with the built-in reader and serves no
// pages dynamically; else 1. Outside dynamic requests (always 1), the
// environment variable "STOREGEN_PAGE_PROCESSES" set to 1 or 2 decides
// instead (for comparisons and tests).
int PageProcesses(std::size_t pages);

// Calls |head| (the shop home series), then |write| for every node of
// |nodes| in order, in |processes| processes (1 or 2). |write| returns a
// page's result; the result is that of the last page that failed, 0 when
// none did (what |head| does with its result is its own).
int WriteRunPages(const std::function<void()>& head, const std::vector<const SkuList*>& nodes,
                  int processes, const std::function<int(const SkuList*)>& write);

}  // namespace storegen

#endif  // STOREGEN_DRIVER_PAGE_PROCESSES_H_
