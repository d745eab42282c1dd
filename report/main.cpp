#include "report/Report.h"

int main(int argc, char* argv[]) { return report::run(argc, argv); }
