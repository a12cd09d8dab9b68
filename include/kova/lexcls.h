/** @file
 * The lexical classes a recogniser can be told to expect, as the raw bits of
 * a BFLexCls bit field: bit k of the field is the class of row k below. The
 * field's "InitBitField" labels ("Main", "Number", ...) name the same bits in
 * the same order. */
#ifndef KOVA_LEXCLS_H
#define KOVA_LEXCLS_H

/** Masks of the raw bits of a BFLexCls field. */
enum {
    QLBF_LEXCLS_MAINLEX = 0x0001,          /**< bit 0, "Main" */
    QLBF_LEXCLS_NUMBER = 0x0002,           /**< bit 1, "Number" */
    QLBF_LEXCLS_ROMAN_NUMERAL = 0x0004,    /**< bit 2, "Roman Numeral" */
    QLBF_LEXCLS_DATE = 0x0008,             /**< bit 3, "Date" */
    QLBF_LEXCLS_TIME = 0x0010,             /**< bit 4, "Time" */
    QLBF_LEXCLS_MONEY = 0x0020,            /**< bit 5, "Money" */
    QLBF_LEXCLS_ID_NUMBER = 0x0040,        /**< bit 6, "ID Number" */
    QLBF_LEXCLS_TELEPHONE_NUMBER = 0x0080, /**< bit 7, "Telephone Number" */
    QLBF_LEXCLS_TERMINAL_DOT = 0x0100,     /**< bit 8, "Terminal DOT" */
    QLBF_LEXCLS_ALPHA = 0x0200,            /**< bit 9, "Alpha" */
    QLBF_LEXCLS_SMALL_TEXT = 0x0400        /**< bit 10, "Small Text" */
};

#endif /* KOVA_LEXCLS_H */
