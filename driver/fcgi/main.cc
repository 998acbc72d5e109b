#include "driver/fcgi/fcgi_main.h"

int main(int argc, char** argv) {
  return storegen::FcgiMain(argc, argv);
}
