// Raising the demo library's own errors.
#ifndef KOVA_DEMO_DEMOERR_HPP
#define KOVA_DEMO_DEMOERR_HPP

#include "kova/kernel.h"

namespace demo {

// Leaves a DemoErr for `number` in the caller's slot, stacked on what is there.
void raise(kvObject* errSlot, const char* source, int32_t number, const kvArgs* values);

template <typename... A>
void raiseError(kvObject* errSlot, const char* source, int32_t number, A... values) {
    const kova::ArgList<A...> list(values...);
    raise(errSlot, source, number, list.get());
}

} // namespace demo

#endif
