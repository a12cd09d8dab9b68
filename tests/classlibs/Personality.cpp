// A class library for the tests of matching and version control,
// "TESTVER.DLL": its own file version and expected-version list (Versions.def),
// and one personality class
//   MatchPM (Object)  remembers the technology named by "setTMName"
//                     ("getTMName" answers it) and the mode and level of the
//                     last "checkVersionAPI" ("getCheck" answers them as
//                     mode * 1000 + level, -1 before any)
#include "kova/kernel.h"
#include "kova/resources.h"

#include <cstring>

namespace {

kvClass MatchPMClass;

#pragma pack(push, 1)
struct MatchPMData {
    char technology[32];
    int32_t lastCheck; // mode * 1000 + level of the last "checkVersionAPI"
};
#pragma pack(pop)

KV_METHOD_TABLE(matchPMMethods, kova::method("checkVersionAPI", 2), kova::method("getCheck", 0),
                kova::method("getTMName", 0), kova::method("objInit", 0),
                kova::method("setTMName", 1));
KV_EMPTY_METHOD_TABLE(noMethods);

} // namespace

KV_METHOD(MatchPM, objInit) {
    kvSendParentMethNA(errSlot, MatchPMClass, self, "objInit", args);
    static_cast<MatchPMData*>(instData)->lastCheck = -1;
    return 0;
}

KV_METHOD(MatchPM, checkVersionAPI) {
    (void)errSlot, (void)self;
    static_cast<MatchPMData*>(instData)->lastCheck =
        static_cast<int32_t>(kvArgAt(args, 0) * 1000 + kvArgAt(args, 1));
    return 0;
}

KV_METHOD(MatchPM, getCheck) {
    (void)errSlot, (void)self, (void)args;
    return static_cast<MatchPMData*>(instData)->lastCheck;
}

KV_METHOD(MatchPM, getTMName) {
    (void)errSlot, (void)self, (void)args;
    return reinterpret_cast<kvResult>(static_cast<MatchPMData*>(instData)->technology);
}

KV_METHOD(MatchPM, setTMName) {
    (void)errSlot, (void)self;
    auto* data = static_cast<MatchPMData*>(instData);
    const char* name = reinterpret_cast<const char*>(kvArgAt(args, 0));
    std::strncpy(data->technology, name ? name : "", sizeof data->technology - 1);
    return 0;
}

KV_REGISTER(MatchPM) {
    if (!kvRegisterClass("Object")) return nullptr;
    MatchPMClass = kvAddClass("MatchPM", "Object", sizeof(MatchPMData), 0, matchPMMethods.get(),
                              noMethods.get());
    return MatchPMClass;
}

KV_MODULE_RESOURCES = {
#define KV_FILE_VERSION(a, b, c, d) KV_VERSION_RESOURCE(a, b, c, d),
#define KV_STRING(number, text) KV_STRING_RESOURCE(number, text),
#include "Versions.def"
#undef KV_FILE_VERSION
#undef KV_STRING
    {nullptr, nullptr, nullptr, 0},
};
