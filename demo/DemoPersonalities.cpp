// The demo's personality modules: what a host makes through the protocols
// "Scan" and "Recognize". They add nothing to the personality base; a class of
// its own per component lets the protocol table name each one.
#include "kova/kernel.h"

namespace {

KV_EMPTY_METHOD_TABLE(noMethods);

kvClass addPersonality(const char* name) {
    if (!kvRegisterClass("PM")) return nullptr;
    return kvAddClass(name, "PM", 0, 0, noMethods.get(), noMethods.get());
}

} // namespace

KV_REGISTER(DemoScanPM) {
    return addPersonality("DemoScanPM");
}
KV_REGISTER(DemoRecogPM) {
    return addPersonality("DemoRecogPM");
}
