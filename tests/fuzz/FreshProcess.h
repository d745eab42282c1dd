// Makes the process-wide state of the program what it is in a process that has done nothing yet, so
// that one process can try many inputs: the single instances of the conversion, the counter of
// keys, and logging.
#pragma once

// Whoever holds a pointer to a single instance, or to what one owns, holds a dangling one
// afterwards. Every line that is logged from then on is formatted and dropped, whatever its level.
void startAfreshForTest();
