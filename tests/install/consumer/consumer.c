/* An installed-package consumer: the public API only, built outside the
 * source tree. Prints how many instance names the object manager returned. */
#include <CimXmlClient.h>
#include <stdio.h>
#include <stdlib.h>

int main(int argc, char** argv) {
    ClientHandle* handle;
    ClassName className = { (char*)"CIM_ComputerSystem", NULL };
    Error* error = NULL;
    InstanceName* names;
    const InstanceName* n;
    int count = 0;

    if (argc != 3) {
        fprintf(stderr, "usage: consumer HOST PORT\n");
        return 2;
    }
    handle = client_Configuration(argv[1], atoi(argv[2]), "root/cimv2", 5000, "user", "password");
    if (!handle) return 1;
    names = EnumerateInstanceNames(handle, &className, &error);
    for (n = names; n; n = n->next) count++;
    printf("instance names: %d\n", count);
    if (error) fprintf(stderr, "consumer: error %s %s\n", error->code ? error->code : "", error->description ? error->description : "");
    Free_InstanceName(names);
    if (error) Free_Error(error);
    Free_client_Configuration(handle);
    return count > 0 ? 0 : 1;
}
