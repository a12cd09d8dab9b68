// DemoErr: the demo library's error class. Its texts are the library's own
// string resources, so an error it raises reads in the library's words and
// names the library's help contexts.
#include "DemoErr.hpp"

#include "DemoMessages.h"
#include "kova/resources.h"

namespace {

kvClass DemoErrClass;

KV_METHOD_TABLE(demoErrMethods, kova::method("getModuleInstance", 0, KV_METHOD_NO_INSTDATA));
KV_EMPTY_METHOD_TABLE(demoErrClassMethods);

} // namespace

// The module whose string resources hold the texts: this library.
KV_METHOD_NO_DATA(DemoErr, getModuleInstance) {
    (void)errSlot, (void)self, (void)args;
    return reinterpret_cast<kvResult>(DemoErrClass->library);
}

KV_REGISTER(DemoErr) {
    if (!kvRegisterClass("BaseError")) return nullptr;
    DemoErrClass =
        kvAddClass("DemoErr", "BaseError", 0, 0, demoErrMethods.get(), demoErrClassMethods.get());
    return DemoErrClass;
}

#ifndef _WIN32
KV_MODULE_RESOURCES = {
    {KV_RT_STRING, KV_RESOURCE_ID(DEMO_FEEDER_EMPTY), DEMO_FEEDER_EMPTY_TEXT,
     sizeof DEMO_FEEDER_EMPTY_TEXT - 1},
    {KV_RT_STRING, KV_RESOURCE_ID(DEMO_OUTPUT_FAILED), DEMO_OUTPUT_FAILED_TEXT,
     sizeof DEMO_OUTPUT_FAILED_TEXT - 1},
    {KV_RT_STRING, KV_RESOURCE_ID(DEMO_PAGE_FAILED), DEMO_PAGE_FAILED_TEXT,
     sizeof DEMO_PAGE_FAILED_TEXT - 1},
    {nullptr, nullptr, nullptr, 0},
};
#endif

namespace demo {

void raise(kvObject* errSlot, const char* source, int32_t number, const kvArgs* values) {
    kvObject error = kvNewObject(errSlot, "DemoErr", source, number, values);
    if (error && errSlot)
        *errSlot = error;
    else if (error)
        kvDelObject(nullptr, error);
}

} // namespace demo
