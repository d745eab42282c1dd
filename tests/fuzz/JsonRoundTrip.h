// What the serialiser of JSON trees promises.
#pragma once

#include "kestrel/json/JSOM.h"

// Reports a finding unless the tree, written as a text, is JSON (see requireJson) and, parsed
// again, the same tree. A tree that has no such text is passed over: one with a zero byte in a
// string, with numbers that are not finite or longer than a text of them can show, or without any
// value.
void requireRoundTrip(const kestrel::JSOM& tree);
