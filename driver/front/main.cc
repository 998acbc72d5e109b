#include "driver/front/front_main.h"

int main(int argc, char** argv) {
  return storegen::FrontMain(argc, argv);
}
