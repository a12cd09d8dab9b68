/* A host program in C: starts the kernel, loads the class location file given
 * as its argument, makes a Tally (its library is loaded on demand) and sends
 * it a message. Prints the total; exit status 0 when it is 42. */
#include <kova/classloc.h>
#include <kova/kernel.h>

#include <stdio.h>

int main(int argc, char** argv) {
    if (argc != 2) {
        fprintf(stderr, "usage: tallyhost CLASSLOCATIONFILE\n");
        return 2;
    }
    kvInitialize();
    int status = 1;
    kvObject error = 0;
    if (!kvTableLoad_CLASSLOCATION(argv[1])) {
        fprintf(stderr, "tallyhost: cannot load %s\n", argv[1]);
    } else {
        kvObject tally = kvNewObject(&error, "Tally", 40);
        if (tally) {
            const kvResult total = kvSendMeth(&error, tally, "add", 2);
            printf("total %ld\n", (long)total);
            status = (total == 42 && !error) ? 0 : 1;
            kvDelObject(&error, tally);
        }
    }
    kvTerminate();
    return status;
}
