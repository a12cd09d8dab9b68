/* Sideband data: the tagged values that travel with a page image besides its
 * pixels, held by the SidebandData property. Its "getTagTablePointer" hands
 * out the table itself: an array of "getCount" pointers to these records. */
#ifndef KOVA_SIDEBAND_H
#define KOVA_SIDEBAND_H

#include "kova/kernel.h"

#ifdef __cplusplus
extern "C" {
#endif

/** One tag of a SidebandData table. The record is one block: this 16-byte
 *  head, then `count` items of the type's size (TIFF sizes: BYTE and ASCII
 *  1, SHORT 2, LONG 4, RATIONAL 8, any other type 0), then one spare byte
 *  set to 0. */
typedef struct kvSidebandTag {
    int32_t id;    /**< tag identifier */
    int32_t type;  /**< TIFF type code: 1 BYTE, 2 ASCII, 3 SHORT, 4 LONG, 5 RATIONAL */
    int32_t count; /**< number of items */
    int32_t flags; /**< the owner's flags, stored and returned only */
} kvSidebandTag;
KV__STATIC_ASSERT(sizeof(kvSidebandTag) == 16);

/** The items of a tag record, which follow its head. */
static inline unsigned char* kvSidebandTagData(kvSidebandTag* tag) {
    return (unsigned char*)(tag + 1);
}

#ifdef __cplusplus
}
#endif

#endif /* KOVA_SIDEBAND_H */
