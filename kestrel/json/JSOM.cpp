#include "kestrel/json/JSOM.h"
