#include "driver/startup.h"

int main(int argc, char** argv) { return storegen::PageGenMain(argc, argv); }
