#include "prepare/Prepare.h"

int main(int count, char** words) { return prepare::run(count, words); }
