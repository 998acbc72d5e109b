#include "driver/admin/admin_main.h"

int main(int argc, char** argv) {
  return storegen::AdminMain(argc, argv);
}
