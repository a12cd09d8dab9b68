// How the shell shows values: numbers, texts and objects as one line each,
// and an error stack as the error dialog would walk it.
#pragma once

#include "kova/kernel.h"
#include "tools/shell/ResultKinds.hpp"

#include <cstdio>
#include <string>

namespace kova::shell {

// A text between double quotes, with \" \\ \n \t and \xNN escapes, cut after
// a few hundred characters.
std::string quotedText(const char* text);

// A result: the number, and for a text or an object also the address with the
// text or the object's class ("0x5612a0 (IntProp)").
std::string shownValue(kvResult value, ResultKind kind);

// Prints every error of the stack from `newest` on, following each error's
// next (older) neighbour as the dialog's Next button does, and stops before
// `stop` (the error that was on top before, or null for the whole stack).
// Answers the number of errors printed.
int printErrorStack(FILE* out, kvObject newest, kvObject stop);

// Deletes the whole stack whose newest error is in `*slot`, leaving it null.
void deleteErrorStack(kvObject* slot);

} // namespace kova::shell
