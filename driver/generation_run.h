// The generation run: which pages a run writes, and in which order.
#ifndef STOREGEN_DRIVER_GENERATION_RUN_H_
#define STOREGEN_DRIVER_GENERATION_RUN_H_

namespace storegen {

// True for a static run, which writes a store's pages to disk; false for a
// dynamic request (one product page or one list page on standard output).
bool IsStaticRun();

// Writes the run's pages (site pages, SKU lists, shop home page, product
// pages, cart pages, search page) from the run state. Every failing page is
// recorded in the error list and the run goes on; returns the result of the
// last failing page, or 0.
int GeneratePages();

// Frees the product list that the last run keeps until the next one starts.
void ReleaseKeptProducts();

}  // namespace storegen

#endif  // STOREGEN_DRIVER_GENERATION_RUN_H_
