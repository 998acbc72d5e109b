// Writing the product pages of a static run in two processes. The pages are
// independent of each other: this process writes the first half, a child
// process the second half, and when the child is done this process takes
// over what the child's pages did to the run's records (the error and
// delete lists, the secure files, the list template, the progress count)
// and the child's standard output, in page order. The run ends as if one
// process had written every page; if the child fails, this process writes
// its half again itself.
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
// pages dynamically; else 1. The environment variable
// "STOREGEN_PAGE_PROCESSES" set to 1 or 2 decides instead (for comparisons
// and tests).
int PageProcesses(std::size_t pages);

// Calls |write| for every node of |nodes| in order, in |processes| processes
// (1 or 2). |write| returns a page's result; the result is that of the last
// page that failed, 0 when none did.
int WriteProductPages(const std::vector<const SkuList*>& nodes, int processes,
                      const std::function<int(const SkuList*)>& write);

}  // namespace storegen

#endif  // STOREGEN_DRIVER_PAGE_PROCESSES_H_
