// The state of a BitField's bit dialog while it runs (kova/bitdialog.h holds
// its public commands). BitField fills it when the dialog opens; the
// dialog's logic and whoever draws it read and change it. Internal to the
// library.
#pragma once

#include "kova/bitdialog.h"

#include <cstdint>

struct kvBitFieldDialog {
    kvObject field;                // the BitField the dialog sets
    kvObject* errSlot;             // where the field's sends report
    const char* caption;           // the dialog's caption, may be null
    void* bitValues;               // the field's translated value and raw bits, cleared by OK
    int boxes;                     // check boxes in use, from the first on
    int bitOfBox[KV_BITDLG_BOXES]; // the raw bit each box in use stands for
    const char* labelOfBox[KV_BITDLG_BOXES]; // the label's source: the bit's string
    bool checked[KV_BITDLG_BOXES];           // what each box in use shows
    bool closed;                             // set by OK or Cancel
};
