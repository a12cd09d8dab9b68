/* The demo library's own error texts, string resources 20000 and up. Each text
 * ends with a blank and its help context, as the kernel's do. Shared by the
 * compiled-in table on POSIX and the resource script on Windows. */
#ifndef DEMO_MESSAGES_H
#define DEMO_MESSAGES_H

#define DEMO_FEEDER_EMPTY 20000
#define DEMO_FEEDER_EMPTY_TEXT "The document feeder is empty after %ld pages 9001"
#define DEMO_OUTPUT_FAILED 20001
#define DEMO_OUTPUT_FAILED_TEXT "The scanned pages could not be written: %s 9002"
#define DEMO_PAGE_FAILED 20002
#define DEMO_PAGE_FAILED_TEXT "Page %ld could not be delivered to the image data property 9003"

#endif
