#include "app/Driver.h"

int main(int argc, char* argv[]) {
  Driver driver;
  return driver.run(argc, argv);
}
