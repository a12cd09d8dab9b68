/* The error table of "ERRTEXTS.DLL", read both by ErrorTexts.cpp (the POSIX
 * compiled-in resources) and by ErrorTexts.rc (the Windows resources), so that
 * the two carry the same bytes. Quotes are written \042: the resource compiler
 * wants "" where C wants \". Lines as a module writes them, a malformed one
 * among them. */
#ifndef KOVA_TESTS_ERRORTEXTS_H
#define KOVA_TESTS_ERRORTEXTS_H

#define ERRTEXTS_TABLE                                                                             \
    "100 \042Disk full\042 7001\n"                                                                 \
    "101 \042Paper jam in tray %d\042 7002\n"                                                      \
    "this line is not an error line\n"                                                             \
    "100 \042A second text for 100\042 7003\n"                                                     \
    "102 \042Last line, no line feed\042 7004"

#endif
