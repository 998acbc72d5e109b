// Filled in by its module work.
