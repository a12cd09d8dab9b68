// What a method's result means, so that the shell can show a text or an
// object beside the plain number. A result slot carries no type, so the shell
// keeps a table of the methods known to answer a text or an object: an entry
// names the class that defines the method (the one the send ends up in) or
// applies to every class. Methods not in the table answer integers.
#pragma once

#include "kova/kernel.h"

namespace kova::shell {

enum class ResultKind { Integer, Text, Object };

// The kind of `method`'s result as defined by `definingClass` (the class whose
// table holds the procedure that runs; null when unknown).
ResultKind resultKindOf(kvClass definingClass, const char* method);

} // namespace kova::shell
