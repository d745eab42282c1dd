#include "kestrel/json/JsomWriter.h"
