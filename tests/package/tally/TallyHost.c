/* A host program in C: starts the kernel, loads the class location file given
 * as its argument, makes the kernel's personality module for the technology
 * "TallyTM" (its library is loaded on demand when the personality is
 * activated), checks that the component offers its connection under its FQN,
 * and sends the technology a message through the personality. Prints the
 * total; exit status 0 when it is 42. */
#include <kova/classloc.h>
#include <kova/component.h>
#include <kova/kernel.h>
#include <kova/plr.h>

#include <stdio.h>

static int useComponent(kvObject* error) {
    kvObject pm = kvNewObject(error, "PM");
    if (!pm) return 1;
    kvSendMeth(error, pm, "setTMName", "TallyTM");
    kvSendMeth(error, pm, "storeFQN", "Tally.1");
    int status = 1;
    if (!kvSendMeth(error, pm, "activate")) {
        fprintf(stderr, "tallyhost: the technology TallyTM was not made\n");
    } else if (!PLRIsServiceProviderFQN(KV_WIDGET_CONNECTION, "Tally.1")) {
        fprintf(stderr, "tallyhost: the component offers no connection\n");
    } else {
        const kvResult total = kvSendMeth(error, pm, "fireMethod", "add", 2);
        printf("total %ld\n", (long)total);
        status = (total == 42 && !*error) ? 0 : 1;
    }
    kvDelObject(error, pm);
    return status;
}

int main(int argc, char** argv) {
    if (argc != 2) {
        fprintf(stderr, "usage: tallyhost CLASSLOCATIONFILE\n");
        return 2;
    }
    kvInitialize();
    int status = 1;
    kvObject error = 0;
    if (!kvTableLoad_CLASSLOCATION(argv[1]))
        fprintf(stderr, "tallyhost: cannot load %s\n", argv[1]);
    else
        status = useComponent(&error);
    kvTerminate();
    return status;
}
