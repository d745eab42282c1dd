#include "kestrel/json/JSONData.h"
