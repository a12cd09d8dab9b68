// The demo technologies' look-up of their own properties.
#ifndef KOVA_DEMO_COMPONENTPROPERTY_HPP
#define KOVA_DEMO_COMPONENTPROPERTY_HPP

#include "kova/kernel.h"

namespace demo {

// The component's property of that name, or null; a missing property is an
// ordinary case here, so the look-up's error is deleted.
inline kvObject property(kvObject component, const char* name) {
    kvObject error = nullptr;
    const auto found =
        reinterpret_cast<kvObject>(kvSendMeth(&error, component, "findPropertyByName", name));
    if (error) kvDelObject(nullptr, error);
    return found;
}

} // namespace demo

#endif
