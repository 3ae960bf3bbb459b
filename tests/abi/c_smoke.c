/* A C99 caller: builds a small record tree with the append functions,
 * clones it, writes nothing over the network, frees everything. */
#include <CimXmlClient.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

static int fail(const char* what) {
    fprintf(stderr, "c_smoke: %s\n", what);
    return 1;
}

int main(void) {
    ClientHandle* handle = client_Configuration("127.0.0.1", 5988, "root/cimv2", 2000, "user", "secret");
    Property* properties = NULL;
    KeyBinding* keys = NULL;
    InstanceName* names = NULL;
    Instance* instances = NULL;
    Instance* copy = NULL;
    ClassName* className;
    ClassName* nameClass;
    char enabled[6] = "true";
    char ns[32];

    if (!handle) return fail("no handle");
    if (CIMC_GetNamespace(handle, ns, sizeof ns) != 0 || strcmp(ns, "root/cimv2") != 0) return fail("namespace");
    if (AddToProeprtyList(&properties, "Name", (char*)"disk0", "string") != 0) return fail("property");
    if (AddToProeprtyList(&properties, "Enabled", enabled, "boolean") != 0) return fail("property");
    if (strcmp(enabled, "TRUE") != 0) return fail("boolean rewrite");
    if (AddToKeyBindingList(&keys, "DeviceID", "disk0", "string", NULL, NULL, NULL) != 0) return fail("key");

    className = (ClassName*)calloc(1, sizeof *className);
    nameClass = (ClassName*)calloc(1, sizeof *nameClass);
    if (!className || !nameClass) return fail("calloc");
    className->name = strdup("CIM_DiskDrive");
    nameClass->name = strdup("CIM_DiskDrive");
    if (AddToInstanceList(&instances, className, NULL, NULL, properties) != 0) return fail("instance");
    if (AddToInstanceNameList(&names, keys, nameClass) != 0) return fail("instance name");
    if (Clone_Instance(instances, &copy) != 0) return fail("clone");
    Free_Instance(instances);
    if (strcmp(copy->properties->next->value->value, "TRUE") != 0) return fail("clone is shallow");

    Free_Instance(copy);
    Free_InstanceName(names);
    if (Free_client_Configuration(handle) != 0) return fail("free handle");
    puts("c_smoke: ok");
    return 0;
}
