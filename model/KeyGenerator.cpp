#include "model/KeyGenerator.h"

uint64_t KeyGenerator::counter = 0;
