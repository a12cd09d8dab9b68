/* The public headers compile as C, and the plain forms work from C: a class
 * from the test library is created, sent methods with several slots, and
 * deleted; an unknown method leaves an error in the slot. */
#include "kova/bitdialog.h"
#include "kova/classloc.h"
#include "kova/component.h"
#include "kova/dib.h"
#include "kova/errdialog.h"
#include "kova/errreg.h"
#include "kova/host.h"
#include "kova/image.h"
#include "kova/kernel.h"
#include "kova/lexcls.h"
#include "kova/match.h"
#include "kova/plr.h"
#include "kova/registry.h"
#include "kova/resources.h"
#include "kova/sideband.h"
#include "kova/version.h"

#include <stdio.h>
#include <string.h>

static int failures = 0;
static int checks = 0;

#define CHECK(condition)                                                                           \
    do {                                                                                           \
        ++checks;                                                                                  \
        if (!(condition)) {                                                                        \
            ++failures;                                                                            \
            fprintf(stderr, "%s:%d: check failed: %s\n", __FILE__, __LINE__, #condition);          \
        }                                                                                          \
    } while (0)

/* A bit dialog hook in C: checks the first box offered and presses OK. */
static int pressFirstBox(struct kvBitFieldDialog* dialog) {
    char label[32];
    if (!kvBitFieldDialogLabel(dialog, KV_BITDLG_FIRST_BOX, label, sizeof label)) return 0;
    kvBitFieldDialogSetChecked(dialog, KV_BITDLG_FIRST_BOX, 1);
    return kvBitFieldDialogCommand(dialog, KV_BITDLG_OK);
}

static int quietMessageBox(const char* text, const char* caption, unsigned style) {
    (void)text, (void)caption, (void)style;
    return KV_IDOK;
}

int main(void) {
    kvObject error = 0;
    kvObject square;
    kvSetMessageBoxHook(quietMessageBox);
    kvSetRegistryStore("kova-c-test-settings/registry");
    kvSetProfileFolder("kova-c-test-settings");
    kvInitialize();
    CHECK(kvTableInsertEntry_CLASSLOCATION("Shape", "TESTSHP.DLL") == 1);
    CHECK(kvTableInsertEntry_CLASSLOCATION("Polygon", "TESTSHP.DLL") == 1);
    CHECK(kvTableInsertEntry_CLASSLOCATION("Square", "TESTSHP.DLL") == 1);
    CHECK(kvTableInsertEntry_CLASSLOCATION("Listener", "TESTSHP.DLL") == 1);

    square = kvNewObject(&error, "Square", 4, 6);
    CHECK(square != 0);
    CHECK(kvSendMeth(&error, square, "area") == 36);
    CHECK(kvSendMeth(&error, square, "isA", "Shape") == -1);
    CHECK(kvSendParentMeth(&error, kvFindClass("Polygon"), square, "getSides") == 4);
    CHECK(kvSendClMeth(&error, kvFindClass("Square"), "unitSides") == 2);
    CHECK(error == 0);

    CHECK(kvSendMeth(&error, square, "spin", 1, 2, 3) == 0);
    CHECK(error != 0);
    CHECK(kvSendMeth(0, error, "getCode") == 3427);
    kvSendMeth(&error, error, "deleteTopError");
    CHECK(error == 0);
    {
        /* Message arguments travel as slots too. */
        kvObject made = kvMakeError(3478, "Name", "bad");
        CHECK(strcmp((const char*)kvSendMeth(0, made, "getMessage"),
                     "Invalid string input; Parameter Name = bad") == 0);
        kvSendMeth(&made, made, "deleteTopError");
    }
    {
        /* The firing forms put the notifier and the event name first. */
        kvObject listener = kvNewObject(&error, "Listener");
        CHECK(kvAddNotification(&error, square, "OnStore", listener, "onEvent", 1) == 1);
        kvFireNotification(&error, square, "OnStore", 42, "extra");
        CHECK(kvSendMeth(&error, listener, "getArg", 0) == (kvArg)square);
        CHECK(kvSendMeth(&error, listener, "getArg", 2) == 42);
        kvSendMeth(&error, listener, "configure", 300, 0, 0);
        CHECK(kvFireNotificationTerm(&error, square, "OnStore") == 300);
        CHECK(kvSendMeth(&error, listener, "getCalls") == 2);
        CHECK(kvDeleteNotification(&error, square, "OnStore", listener, "onEvent") == 1);
        kvDelObject(&error, listener);
    }
    {
        /* A component made through the protocol table, and the version
         * settings with their registry and INI access. */
        kvObject personality;
        char text[KV_VERSION_SETTING_SIZE];
        int32_t level = 9;
        CHECK(kvTableInsertEntry_CLASSLOCATION("MatchPM", "TESTVER.DLL") == 1);
        CHECK(kvRegistrySetValue("KOVA\\Protocols\\CTest", "MatchPM") == 1);
        CHECK(kvRegistrySetValue("KOVA\\Protocols\\CTest\\MatchPM", "CTestTM") == 1);
        personality = MatchMake(&error, "CTest", 0);
        CHECK(personality != 0);
        CHECK(strcmp((const char*)kvSendMeth(&error, personality, "getTMName"), "CTestTM") == 0);
        kvDelObject(&error, personality);
        CHECK(kvRegistryDeleteKey("KOVA\\Protocols\\CTest") == 1);
        CHECK(kvRegistrySetValue("KOVA\\VersionControl\\VersionReporting\\VerbosityLevel", "2") ==
              1);
        CHECK(kvGetRegistrySetting("VersionReporting\\VerbosityLevel", &level, 1) == 1 &&
              level == 2);
        CHECK(kvGetRegistrySetting("VersionReporting\\LogFile", text, 0) == 0 && text[0] == 0);
        CHECK(kvIsVersionBad(1, 3) == 1 && kvIsVersionBad(1, 1) == 0);
        CHECK(kvProfileGetInt("Missing", "key", 12, "KOVA.INI") == 12);
    }
    {
        /* A host makes a DIB handle, hands it to a RawImage and reads the
         * image's own DIB back through the same functions. */
        kvObject image = kvNewObject(&error, "RawImage", 1, 1, 1, 1, 0, "image", 0, 0);
        kvMemHandle dib = kvGlobalAlloc(sizeof(kvBitmapInfoHeader) + 2 * sizeof(kvRGBQuad) + 4);
        kvBitmapInfoHeader* header = (kvBitmapInfoHeader*)kvGlobalLock(dib);
        kvPaletteEntry entry = {1, 2, 3};
        header->biSize = sizeof *header;
        header->biWidth = 8;
        header->biHeight = 1;
        header->biPlanes = 1;
        header->biBitCount = 1;
        header->biXPelsPerMeter = 11811;
        ((unsigned char*)(header + 1))[8] = 0x81;
        kvGlobalUnlock(dib);
        CHECK(kvDIBRowBytes(8, 1) == 4);
        CHECK(kvSendMeth(&error, image, "setDIB", dib) == 1);
        CHECK(kvSendMeth(&error, image, "getXResolution") == 301);
        CHECK(kvSendMeth(&error, image, "getPhotoMetricInterp") == KV_PHOTOMETRIC_BLACK_IS_ZERO);
        dib = (kvMemHandle)kvSendMeth(&error, image, "getDIB");
        CHECK(kvGlobalSize(dib) == sizeof(kvBitmapInfoHeader) + 2 * sizeof(kvRGBQuad) + 4);
        header = (kvBitmapInfoHeader*)kvGlobalLock(dib);
        CHECK(header->biXPelsPerMeter == 301 * 39);
        CHECK(((unsigned char*)(header + 1))[8] == 0x81);
        kvGlobalUnlock(dib);
        kvGlobalFree(dib);
        CHECK(entry.blue == 3 && error == 0);
        kvDelObject(&error, image);
    }
    {
        /* The link registry: a provider found by its LINKID, a sink that
         * waits for it, a list of FQNs owned by the registry. */
        int16_t count = 0;
        char** fqns = 0;
        kvObject found = 0;
        kvObject linked = 0;
        char* linkId = 0;
        const char* rules[] = {"any", 0};
        CHECK(PLRGetNotifierObject() != 0);
        CHECK(PLRRegisterSink(square, "Viewer.Source", "Shapes", "Square.1") == PLR_OK);
        CHECK(PLRRegisterProperty("Shapes", square, "Square.1", square) == PLR_OK);
        CHECK(PLRGetObjectFromLINKID("Shapes", "SQUARE.1", &found) == PLR_OK && found == square);
        CHECK(PLRGetServiceProviderFQNs("Shapes", &count, &fqns) == PLR_OK && count == 1);
        CHECK(strcmp(fqns[0], "Square.1") == 0);
        CHECK(strcmp(PLRGetDefaultLINKID("Shapes", "Viewer", rules), "Square.1") == 0);
        CHECK(PLREstablishLink("Viewer.Source", 0, "Shapes", 0, 0, "Square.1", &linked) == PLR_OK);
        CHECK(linked == square && PLRGetSinkCount() == 1);
        CHECK(PLRCreateLINKID(&linkId) == PLR_OK && strlen(linkId) == 9);
        CHECK(PLRUnregisterSink(square, "Viewer.Source", "Shapes") == PLR_OK);
        CHECK(PLRUnregisterProperty("Shapes", square, "Square.1") == PLR_OK);
    }
    {
        /* A personality without a technology keeps what the host gives it. */
        kvObject pm = kvNewObject(&error, "PM");
        CHECK(pm != 0);
        CHECK(kvSendMeth(&error, pm, "storeFQN", "Host.1") == 1);
        CHECK(strcmp((const char*)kvSendMeth(&error, pm, "fetchFQN"), "Host.1") == 0);
        CHECK(kvSendMeth(&error, pm, "setEventMaskState", KV_EVENT_DISPLAY_NAME, 1) == 1);
        CHECK(kvSendMeth(&error, pm, "getEventMaskState", KV_EVENT_DISPLAY_NAME) == 1);
        CHECK(error == 0);
        kvDelObject(&error, pm);
    }
    {
        /* A sideband table read through its record layout. */
        const int32_t strips[2] = {8, 40};
        kvObject sideband = kvNewObject(&error, "SidebandData", (kvObject)0, "Sideband", 1, 0);
        CHECK(kvSendMeth(&error, sideband, "addTag", 273, 4, 2, 0x5, strips) == 0);
        kvSidebandTag** table = (kvSidebandTag**)kvSendMeth(&error, sideband, "getTagTablePointer");
        CHECK(table && table[0]->id == 273 && table[0]->count == 2 && table[0]->flags == 0x5);
        CHECK(table && memcmp(kvSidebandTagData(table[0]), strips, sizeof strips) == 0);
        kvDelObject(&error, sideband);
    }
    {
        static const uint32_t masks[32] = {0x10, 0x20};
        static const char* const names[] = {"First", "Second", ""};
        kvObject bits = kvNewObject(&error, "BitField", 0, "Bits", 1, 0);
        kvSendMeth(&error, bits, "InitBitField", names, 0, masks, 0);
        kvSetBitFieldDialogHook(pressFirstBox);
        CHECK(kvSendMeth(&error, bits, "createBitFieldWindow", "Bits") == 1);
        kvSetBitFieldDialogHook(0);
        CHECK(kvSendMeth(&error, bits, "fetchXlatedData") == 0x10);
        kvDelObject(&error, bits);
        /* The lexical classes' field takes its translation table first. */
        bits = kvNewObject(&error, "BFLexCls", masks, 0, "Lex", 2, 0);
        kvSendMeth(&error, bits, "storeData", QLBF_LEXCLS_MAINLEX | QLBF_LEXCLS_NUMBER);
        CHECK(kvSendMeth(&error, bits, "fetchXlatedData") == 0x30);
        CHECK(strcmp((const char*)kvSendMeth(&error, bits, "fetchString", 1), "Number") == 0);
        kvDelObject(&error, bits);
    }
    kvDelObject(&error, square);
    {
        /* The program's own file, as a host finds what it ships beside itself. */
        char program[512];
        const uint32_t length = kvGetModuleFileName(0, program, sizeof program);
        CHECK(length > 0 && length < sizeof program && strlen(program) == length);
    }
    kvTerminate();
    printf("%d passed, %d failed\n", checks - failures, failures);
    return failures ? 1 : 0;
}
