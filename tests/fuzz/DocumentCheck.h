// What every document of the program promises, whatever it was made from.
#pragma once

#include <string>

// Reports a finding unless the text is JSON. Bytes of names that JSON does not allow are looked
// past: control bytes, and bytes that are not ASCII. Non-finite numbers are not.
void requireJson(std::string text);

// As requireJson(), and each key of one table must be found in the table that it refers to, and
// keys of maps and functions must be unique. Tables that are missing are taken for empty ones.
void requireDocument(std::string text);
