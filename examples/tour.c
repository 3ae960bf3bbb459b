/*
 * A short tour of CimXmlClient against a CIM object manager.
 *
 *   tour <host> <port> <user> <password> <namespace> [local]
 *
 * host is a dotted IPv4 address. With "local" the tour runs through the local
 * broker back end (the broker library is found by the dynamic loader, e.g.
 * through LD_LIBRARY_PATH); the operations that exist only over HTTP then
 * show that they return nothing. The tour expects the classes of the mock
 * object manager's sample repository (CIM_ComputerSystem, CIM_Processor,
 * CIM_SystemDevice, Mock_Processor, Mock_AllTypes): run examples/run-tour.sh
 * to start one and run the tour against it.
 *
 * Every record an operation returns belongs to us and is freed with the
 * Free_ function of its type. Records we build ourselves are allocated with
 * calloc/malloc, which is what the Free_ functions release.
 */
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#include <CimXmlClient.h>

static int failures = 0;

/* ---- building records -------------------------------------------------- */

static char* copyText(const char* text) {
    size_t n = strlen(text) + 1;
    char* copy = malloc(n);
    if (copy) memcpy(copy, text, n);
    return copy;
}

static ClassName* newClassName(const char* name) {
    ClassName* className = calloc(1, sizeof *className);
    if (className) className->name = copyText(name);
    return className;
}

static ParamValue* newParam(const char* name, const char* type, const char* value) {
    ParamValue* param = calloc(1, sizeof *param);
    if (!param) return NULL;
    param->name = copyText(name);
    param->paramType = copyText(type);
    AddToValueList(&param->value, value);
    return param;
}

/* ---- printing records ---------------------------------------------------- */

static const char* orNull(const char* text) { return text ? text : "NULL"; }

/* Strings, datetimes and characters print quoted, numbers and booleans bare. */
static const char* quoteFor(const char* type) {
    return type && (strcmp(type, "string") == 0 || strcmp(type, "datetime") == 0 || strcmp(type, "char16") == 0)
               ? "\""
               : "";
}

static void printValueArray(const ValueArray* array, const char* type) {
    const Value* v;
    printf("{");
    for (v = array ? array->value : NULL; v; v = v->next)
        printf("%s%s%s%s", v == array->value ? "" : ", ", quoteFor(type), orNull(v->value), quoteFor(type));
    printf("}");
}

static void printInstanceName(const InstanceName* name) {
    const KeyBinding* key;
    if (!name) {
        printf("(no path)");
        return;
    }
    printf("%s", name->className ? orNull(name->className->name) : "?");
    for (key = name->keyBindings; key; key = key->next)
        printf("%c%s=\"%s\"", key == name->keyBindings ? '.' : ',', orNull(key->name),
               key->keyValue ? orNull(key->keyValue->value) : "?");
}

static void printInstance(const Instance* instance, const char* indent) {
    const Property* p;
    const PropertyArray* a;
    const PropertyReference* r;
    if (!instance) return;
    printf("%sinstance of %s {\n", indent, instance->className ? orNull(instance->className->name) : "?");
    for (p = instance->properties; p; p = p->next) {
        if (p->value && p->value->embedded == 1 && p->value->instance) {
            printf("%s    %s = (embedded)\n", indent, p->name);
            printInstance(p->value->instance, "        ");
        } else if (p->value && p->value->value) {
            printf("%s    %s %s = %s%s%s;\n", indent, orNull(p->type), p->name, quoteFor(p->type), p->value->value,
                   quoteFor(p->type));
        }
    }
    for (a = instance->propertyArrays; a; a = a->next) {
        if (!a->valueArray) continue;
        printf("%s    %s %s[] = ", indent, orNull(a->type), a->name);
        printValueArray(a->valueArray, a->type);
        printf(";\n");
    }
    for (r = instance->propertyReferences; r; r = r->next) {
        const ValueReference* ref = r->valueReference;
        if (!ref) continue;
        printf("%s    %s REF %s = ", indent, orNull(r->referenceClass), r->name);
        if (ref->instancePath)
            printInstanceName(ref->instancePath->instanceName);
        else if (ref->localInstancePath)
            printInstanceName(ref->localInstancePath->instanceName);
        else
            printInstanceName(ref->instanceName);
        printf(";\n");
    }
    printf("%s}\n", indent);
}

static void printClass(const Class* cls) {
    const Property* p;
    const PropertyArray* a;
    const PropertyReference* r;
    const Method* m;
    printf("  class %s", orNull(cls->name));
    if (cls->superClass) printf(" : %s", cls->superClass);
    printf(" {\n");
    for (p = cls->properties; p; p = p->next)
        printf("    %s %s;%s%s\n", orNull(p->type), p->name, p->classOrigin ? "   // from " : "",
               p->classOrigin ? p->classOrigin : "");
    for (a = cls->propertyArrays; a; a = a->next)
        printf("    %s %s[];%s%s\n", orNull(a->type), a->name, a->classOrigin ? "   // from " : "",
               a->classOrigin ? a->classOrigin : "");
    for (r = cls->propertyReferences; r; r = r->next) printf("    %s REF %s;\n", orNull(r->referenceClass), r->name);
    for (m = cls->methods; m; m = m->next) {
        const Parameter* param;
        printf("    %s %s(", orNull(m->type), m->name);
        for (param = m->parameters; param; param = param->next)
            printf("%s%s %s", param == m->parameters ? "" : ", ", orNull(param->type), param->name);
        printf(");\n");
    }
    printf("  };\n");
}

/* Prints and frees the error an operation left; says so when there is none. */
static void reportError(const char* what, Error** error) {
    if (!*error) {
        printf("  %s: no result and no error\n", what);
        return;
    }
    printf("  %s failed: CIM error %s (%s)\n", what, orNull((*error)->code), orNull((*error)->description));
    Free_Error(*error);
    *error = NULL;
}

/* Counts a failed step: the tour keeps going so each step shows. */
static int check(int ok, const char* what, Error** error) {
    if (!ok) {
        ++failures;
        reportError(what, error);
    }
    return ok;
}

/* ---- the tour ------------------------------------------------------------ */

static void section(const char* title) { printf("\n== %s\n", title); }

/* On the local back end an HTTP-only operation returns NULL and leaves the
 * error alone. Returns 1 when the step should run normally. */
static int httpOnly(int local, const void* (*run)(ClientHandle*, Error**), ClientHandle* handle) {
    Error* untouched = NULL;
    const void* result;
    if (!local) return 1;
    result = run(handle, &untouched);
    if (result || untouched) ++failures;
    printf("  (over HTTP only: the local back end returns nothing)\n");
    return 0;
}

static const void* enumerateClassNames(ClientHandle* handle, Error** error) {
    ClassName base = {"CIM_LogicalDevice", NULL};
    return EnumerateClassNames(handle, &base, 1, error);
}

static const void* execQuery(ClientHandle* handle, Error** error) {
    return ExecQuery(handle, "WQL", "SELECT * FROM CIM_Processor", error);
}

int main(int argc, char** argv) {
    ClientHandle* handle;
    Error* error = NULL;
    int local;

    if (argc != 6 && !(argc == 7 && strcmp(argv[6], "local") == 0)) {
        fprintf(stderr, "usage: %s <host> <port> <user> <password> <namespace> [local]\n", argv[0]);
        return 2;
    }
    local = argc == 7;
    handle = client_Configuration(argv[1], atoi(argv[2]), argv[5], 10000, argv[3], argv[4]);
    if (!handle) {
        fprintf(stderr, "could not make a connection handle\n");
        return 1;
    }
    /* The back end is normally chosen by the marker file /etc/Binary.txt when
     * the handle is made; the tour picks it explicitly. */
    handle->interfaceType = local ? 1 : 0;
    if (local)
        printf("Local broker back end, namespace %s (GetClass still goes to %s:%s)\n", argv[5], argv[1], argv[2]);
    else
        printf("CIM object manager %s:%s, namespace %s\n", argv[1], argv[2], argv[5]);

    section("Class names under CIM_LogicalDevice (deep)");
    if (httpOnly(local, enumerateClassNames, handle)) {
        ClassName* base = newClassName("CIM_LogicalDevice");
        ClassName* names = EnumerateClassNames(handle, base, 1, &error);
        const ClassName* n;
        if (check(names != NULL, "EnumerateClassNames", &error))
            for (n = names; n; n = n->next) printf("  %s\n", n->name);
        Free_ClassName(names);
        Free_ClassName(base);
    }

    section("The class CIM_Processor, with the class each feature comes from");
    {
        ClassName* name = newClassName("CIM_Processor");
        Class* cls = CIM_GetClass(handle, name, 0, 0, 1, NULL, &error);
        if (check(cls != NULL, "GetClass", &error)) printClass(cls);
        Free_Class(cls);
        Free_ClassName(name);
    }

    section("Instances of CIM_Processor");
    {
        ClassName* name = newClassName("CIM_Processor");
        NamedInstance* list = EnumerateInstances(handle, name, 2, 1, 0, 0, NULL, &error);
        const NamedInstance* n;
        if (check(list != NULL, "EnumerateInstances", &error))
            for (n = list; n; n = n->next) {
                printf("  path: ");
                printInstanceName(n->instanceName);
                printf("\n");
                printInstance(n->instance, "  ");
            }
        Free_NamedInstance(list);
        Free_ClassName(name);
    }

    section("One computer system, by name, and what CIM_SystemDevice ties to it");
    {
        ClassName* name = newClassName("CIM_ComputerSystem");
        InstanceName* systems = EnumerateInstanceNames(handle, name, &error);
        if (check(systems != NULL, "EnumerateInstanceNames", &error)) {
            /* Keep the first name alone: an operation writes the whole chain it is given. */
            InstanceName* others = systems->next;
            Instance* system;
            ObjectName target;
            ClassName* assoc = newClassName("CIM_SystemDevice");
            ObjectWithPath* devices;
            const ObjectWithPath* d;

            systems->next = NULL;
            Free_InstanceName(others);
            system = GetInstance(handle, systems, 2, 0, 0, NULL, &error);
            if (check(system != NULL, "GetInstance", &error)) printInstance(system, "  ");
            Free_Instance(system);

            target.className = systems->className;
            target.instanceName = systems;
            devices = Associators(handle, &target, assoc, NULL, "GroupComponent", "PartComponent", 2, 2, NULL,
                                  &error);
            if (check(devices != NULL, "Associators", &error)) {
                printf("  associated devices:\n");
                for (d = devices; d; d = d->next) {
                    printf("    ");
                    printInstanceName(d->instancePath ? d->instancePath->instanceName : NULL);
                    printf("\n");
                }
            }
            Free_ObjectWithPath(devices);
            Free_ClassName(assoc);
        }
        Free_InstanceName(systems);
        Free_ClassName(name);
    }

    section("Create, modify and delete a Mock_Processor");
    {
        Instance* created = calloc(1, sizeof *created);
        NamedInstance modified;
        InstanceName* path;
        Instance* readBack;
        char elementName[] = "Tour processor";
        char renamed[] = "Renamed by the tour";
        Property* p;

        created->className = newClassName("Mock_Processor");
        AddToProeprtyList(&created->properties, "SystemCreationClassName", (char[]){"Mock_ComputerSystem"}, "string");
        AddToProeprtyList(&created->properties, "SystemName", (char[]){"mock-server.example.com"}, "string");
        AddToProeprtyList(&created->properties, "CreationClassName", (char[]){"Mock_Processor"}, "string");
        AddToProeprtyList(&created->properties, "DeviceID", (char[]){"CPU-TOUR"}, "string");
        AddToProeprtyList(&created->properties, "ElementName", elementName, "string");
        AddToProeprtyList(&created->properties, "MaxClockSpeed", (char[]){"1000"}, "uint32");

        path = CIM_CreateInstance(handle, created, &error);
        if (check(path != NULL, "CreateInstance", &error)) {
            printf("  created: ");
            printInstanceName(path);
            printf("\n");

            for (p = created->properties; p; p = p->next)
                if (strcmp(p->name, "ElementName") == 0) {
                    free(p->value->value);
                    p->value->value = copyText(renamed);
                }
            modified.instanceName = path;
            modified.instance = created;
            modified.next = NULL;
            ModifyInstance(handle, &modified, 2, NULL, &error);
            if (check(error == NULL, "ModifyInstance", &error)) printf("  modified ElementName\n");

            readBack = GetInstance(handle, path, 2, 0, 0, NULL, &error);
            if (check(readBack != NULL, "GetInstance", &error)) printInstance(readBack, "  ");
            Free_Instance(readBack);

            DeleteInstance(handle, path, &error);
            if (check(error == NULL, "DeleteInstance", &error)) printf("  deleted\n");
            readBack = GetInstance(handle, path, 2, 0, 0, NULL, &error);
            if (readBack || !error) ++failures;
            reportError("GetInstance after the delete", &error);
            Free_Instance(readBack);
        }
        Free_InstanceName(path);
        Free_Instance(created);
    }

    section("Invoke the static method Mock_AllTypes.Echo");
    {
        InstanceName* cls = calloc(1, sizeof *cls); /* no keys: the call goes to the class */
        ParamValue* in = newParam("S", "string", "hello");
        ParamValue* out = NULL;
        const ParamValue* o;
        cls->className = newClassName("Mock_AllTypes");
        in->next = newParam("U32", "uint32", "42");
        if (check(invokeMethod(handle, cls, "Echo", in, &out, &error) == 0, "invokeMethod", &error))
            for (o = out; o; o = o->next) /* the return value first, then the output parameters */
                printf("  %s (%s) = %s\n", o->name, orNull(o->paramType),
                       o->value ? orNull(o->value->value) : "(not a plain value)");
        Free_ParamValue(out);
        Free_ParamValue(in);
        Free_InstanceName(cls);
    }

    section("Query: SELECT * FROM CIM_Processor WHERE LoadPercentage > 50");
    if (httpOnly(local, execQuery, handle)) {
        ObjectWithPath* rows =
            ExecQuery(handle, "WQL", "SELECT * FROM CIM_Processor WHERE LoadPercentage > 50", &error);
        const ObjectWithPath* row;
        if (check(rows != NULL, "ExecQuery", &error))
            for (row = rows; row; row = row->next) {
                printf("  ");
                printInstanceName(row->instancePath ? row->instancePath->instanceName : NULL);
                printf("\n");
            }
        Free_ObjectWithPath(rows);
    }

    section("A CIM error: GetClass of a class that does not exist");
    {
        ClassName* name = newClassName("No_Such_Class");
        Class* cls = CIM_GetClass(handle, name, 2, 2, 2, NULL, &error);
        if (cls || !error) ++failures;
        reportError("GetClass No_Such_Class", &error);
        Free_Class(cls);
        Free_ClassName(name);
    }

    Free_client_Configuration(handle);
    printf("\nTour %s (%d unexpected result%s).\n", failures ? "finished with problems" : "complete", failures,
           failures == 1 ? "" : "s");
    return failures ? 1 : 0;
}
