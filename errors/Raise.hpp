// The one way a method raises an error: it sends "error" to the object with
// the raising class's name, the error number and the message's values, which
// leaves a new error in the caller's slot. Answers 0, what a failing method
// usually answers.
#pragma once

#include "kova/kernel.h"

namespace kova {

template <typename... A>
kvResult raiseError(kvObject* errSlot, kvObject obj, kvClass raisingClass, int32_t number,
                    A... values) {
    kvSendMeth(errSlot, obj, "error", kvClassName(raisingClass), number, values...);
    return 0;
}

} // namespace kova
