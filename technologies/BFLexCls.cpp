// BFLexCls: the bit field that selects the lexical classes a recogniser
// should expect. Its eleven bits are labelled, in bit order, "Main" to
// "Small Text"; their masks are the QLBF_LEXCLS_* constants of
// kova/lexcls.h, whose names the field keeps as its second setup value. The
// creator gives the translation table to the recogniser's own encoding.
#include "kova/kernel.h"
#include "kova/lexcls.h"

namespace {

kvClass BFLexClsClass = nullptr;

// Both lists end with an empty entry, as a bit field's string list must.
constexpr const char* labels[] = {"Main",         "Number", "Roman Numeral", "Date",
                                  "Time",         "Money",  "ID Number",     "Telephone Number",
                                  "Terminal DOT", "Alpha",  "Small Text",    ""};
constexpr const char* constantNames[] = {
    "QLBF_LEXCLS_MAINLEX",       "QLBF_LEXCLS_NUMBER",
    "QLBF_LEXCLS_ROMAN_NUMERAL", "QLBF_LEXCLS_DATE",
    "QLBF_LEXCLS_TIME",          "QLBF_LEXCLS_MONEY",
    "QLBF_LEXCLS_ID_NUMBER",     "QLBF_LEXCLS_TELEPHONE_NUMBER",
    "QLBF_LEXCLS_TERMINAL_DOT",  "QLBF_LEXCLS_ALPHA",
    "QLBF_LEXCLS_SMALL_TEXT",    ""};
static_assert(sizeof labels == sizeof constantNames, "one constant per label");
static_assert(QLBF_LEXCLS_SMALL_TEXT == 1 << (sizeof labels / sizeof labels[0] - 2),
              "the last constant is the last label's bit");

KV_METHOD_TABLE(bfLexClsMethods, kova::method("objInit", 0, KV_METHOD_NO_INSTDATA));
KV_EMPTY_METHOD_TABLE(bfLexClsClassMethods);

} // namespace

// (translation table, owner, name, id, flags): a bit field with the labels,
// the constant names, the table, and the class's own name.
KV_METHOD_NO_DATA(BFLexCls, objInit) {
    const kvArgs rest = kvArgsAfter(args, 1);
    kvSendParentMethNA(errSlot, BFLexClsClass, self, "objInit", &rest);
    return kvSendMeth(errSlot, self, "InitBitField", labels, constantNames, kvArgAt(args, 0),
                      kvClassName(BFLexClsClass));
}

KV_REGISTER(BFLexCls) {
    if (!kvRegisterClass("BitField")) return nullptr;
    BFLexClsClass =
        kvAddClass("BFLexCls", "BitField", 0, 0, bfLexClsMethods.get(), bfLexClsClassMethods.get());
    return BFLexClsClass;
}
