/* Matching a protocol (the kind of component a host wants) to the classes
 * that make it: the table under the registry key "KOVA\\Protocols" names, for
 * each protocol, its default personality and, for each personality, the
 * technology class. The table is filled from an INI file at start-up.
 *
 * INI exchange format:
 *
 *     [Protocols]
 *     total=1
 *     Protocol0=Display
 *     [Protocol0]
 *     default=DispPM
 *     total=1
 *     Personality0=DispPM
 *     DispPM=DispTM
 *
 * Names are read into 32-byte buffers: at most 31 characters each. */
#ifndef KOVA_MATCH_H
#define KOVA_MATCH_H

#include "kova/kernel.h"

#ifdef __cplusplus
extern "C" {
#endif

/** The longest protocol, personality or technology name kept, plus its end. */
#define KV_MATCH_NAME_SIZE 32

/** Copies the protocol table of the INI file `iniPath` into the registry under
 * "KOVA\\Protocols". Kernel start-up calls it with "KOVA.INI". Failures of
 * single keys are ignored.
 * @return 1 if the registry table could be opened or made, else 0. */
KV_API int32_t MatchInit(const char* iniPath);

/** Makes the personality module of a component: an object of the class named
 * by `personality` (or, when that is null or empty, by the protocol's default
 * personality), told its technology class with "setTMName".
 * @param errSlot where a failure to make the object is reported.
 * @return the new object, or null when the registry names no technology for
 *         the pair or the object could not be made. */
KV_API kvObject MatchMake(kvObject* errSlot, const char* protocol, const char* personality);

/** Writes the registry's protocol table into the INI file `iniPath`, after a
 * warning box "Attempt to call MatchTerm", since it rewrites the file.
 * @return 0, always. */
KV_API int32_t MatchTerm(const char* iniPath);

#ifdef __cplusplus
}
#endif

#endif /* KOVA_MATCH_H */
