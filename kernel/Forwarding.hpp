// What the two forwarder classes (Forw, PropForw) share: handing a message
// that the forwarder does not understand on to its target.
#pragma once

#include "kova/kernel.h"

namespace kova::kernel {

// Sends `name` with the sender's own list `args` to `target` on behalf of the
// forwarder `self` and answers the target's answer. A forwarder that is its
// own target, or a ring of forwarders handing a message round and round, ends
// with error 3427 (the method is unimplemented along the whole ring) raised
// against `forwarderClass` and the answer 0, instead of exhausting the stack.
kvResult forwardMessage(kvObject* errSlot, kvObject self, kvClass forwarderClass, kvObject target,
                        const char* name, const kvArgs* args);

} // namespace kova::kernel
