#include "commands.h"

#include <arpa/inet.h>
#include <netdb.h>
#include <termios.h>
#include <unistd.h>

#include <CLI/CLI.hpp>
#include <cctype>
#include <cstdint>
#include <dlfcn.h>
#include <cstdlib>
#include <functional>
#include <iostream>
#include <map>
#include <sstream>

#include "cimxml/client.h"
#include "format.h"
#include "records.h"
#include "syntax.h"

namespace cimcli {
namespace {

// ---- connection -------------------------------------------------------------------

struct Settings {
    std::string host = "127.0.0.1";
    int port = 5988;
    std::string nameSpace = "root/cimv2";
    std::string user;
    int timeoutSeconds = 30;
    bool local = false;
};

std::string lower(std::string s) {
    for (auto& c : s) c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
    return s;
}

// The library wants a dotted IPv4 address.
std::string resolveHost(const std::string& host) {
    in_addr addr{};
    if (inet_pton(AF_INET, host.c_str(), &addr) == 1) return host;
    addrinfo hints{};
    hints.ai_family = AF_INET;
    hints.ai_socktype = SOCK_STREAM;
    addrinfo* found = nullptr;
    if (getaddrinfo(host.c_str(), nullptr, &hints, &found) != 0 || !found) return {};
    char text[INET_ADDRSTRLEN] = {};
    inet_ntop(AF_INET, &reinterpret_cast<sockaddr_in*>(found->ai_addr)->sin_addr, text, sizeof text);
    freeaddrinfo(found);
    return text;
}

// Without echo, and only from a terminal: a script gets no prompt.
std::string askPassword(const std::string& user, std::ostream& err) {
    if (!isatty(STDIN_FILENO)) return {};
    termios saved{};
    bool restore = tcgetattr(STDIN_FILENO, &saved) == 0;
    if (restore) {
        termios quiet = saved;
        quiet.c_lflag &= ~static_cast<tcflag_t>(ECHO);
        tcsetattr(STDIN_FILENO, TCSAFLUSH, &quiet);
    }
    err << "Password for " << user << ": " << std::flush;
    std::string password;
    std::getline(std::cin, password);
    if (restore) tcsetattr(STDIN_FILENO, TCSAFLUSH, &saved);
    err << "\n";
    return password;
}

struct HandleDeleter {
    void operator()(ClientHandle* h) const { Free_client_Configuration(h); }
};

// One run: the handle, the printer and how results end.
class Session {
public:
    Session(const Settings& s, std::string ip, ClientHandle* handle, Format format, std::ostream& out,
            std::ostream& err)
        : settings_(s), ip_(std::move(ip)), handle_(handle), printer_(format, out), err_(err) {}

    ClientHandle* handle() { return handle_.get(); }
    Printer& print() { return printer_; }
    std::ostream& err() { return err_; }

    // Points the handle at a path's namespace, when it names one.
    void useNamespaceOf(const Path& path) {
        if (!path.nameSpace.empty() && CIMC_SetNamespace(handle(), path.nameSpace.c_str()) != 0)
            throw std::bad_alloc();
    }

    // Over HTTP an empty result and a lost connection both come back as
    // NULL without an error: a fresh connection tells them apart.
    bool reachable() {
        if (settings_.local) return true;
        int fd = CIMC_TcpConnect(ip_.c_str(), settings_.port);
        if (fd < 0) return false;
        close(fd);
        return true;
    }

    int transportFailure() {
        err_ << "cimxml: no reply from " << (settings_.local ? std::string("the local broker")
                                                             : settings_.host + ":" + std::to_string(settings_.port))
             << "\n";
        return kExitTransport;
    }

    // Reports what an operation left and gives the exit code.
    int finish(Error* rawError, bool gotResult) {
        ErrorPtr error(rawError);
        if (error) {
            std::string code = error->code ? error->code : "";
            std::string description = error->description ? error->description : "";
            if (code == "401") {
                err_ << "cimxml: authentication failed for user '" << settings_.user << "' (HTTP 401"
                     << (description.empty() ? "" : ": " + description) << ")\n";
                return kExitAuth;
            }
            err_ << "cimxml: CIM error " << code << " " << cimErrorName(code) << ": " << description << "\n";
            return kExitCimError;
        }
        if (!gotResult && !reachable()) return transportFailure();
        return kExitOk;
    }

private:
    Settings settings_;
    std::string ip_;
    std::unique_ptr<ClientHandle, HandleDeleter> handle_;
    Printer printer_;
    std::ostream& err_;
};

// ---- flags -------------------------------------------------------------------------

// --x / --no-x; left out, the parameter is not sent and the server's
// default applies. One Flag may serve several commands: only the parsed
// command's option sets it.
struct Flag {
    unsigned state = 2;
    unsigned get() const { return state; }
};

void addFlag(CLI::App* app, Flag& flag, const std::string& name, const std::string& help) {
    app->add_flag_function(
        "--" + name + ",!--no-" + name, [&flag](std::int64_t count) { flag.state = count > 0 ? 1u : 0u; },
        help + " (default: the server's)");
}

// ---- declarations ---------------------------------------------------------------

using ClassPtr = Owned<Class, Free_Class>;

struct Declared {
    std::string name;  // as the class spells it
    Type type;
};
using DeclMap = std::map<std::string, Declared>;  // by lower-case name

DeclMap propertyTypes(const Class* c) {
    DeclMap m;
    for (const Property* p = c->properties; p; p = p->next)
        m[lower(p->name ? p->name : "")] = {p->name ? p->name : "", Type{p->type ? p->type : "string", false, {}}};
    for (const PropertyArray* p = c->propertyArrays; p; p = p->next)
        m[lower(p->name ? p->name : "")] = {p->name ? p->name : "", Type{p->type ? p->type : "string", true, {}}};
    for (const PropertyReference* p = c->propertyReferences; p; p = p->next)
        m[lower(p->name ? p->name : "")] = {p->name ? p->name : "",
                                            Type{"reference", false, p->referenceClass ? p->referenceClass : ""}};
    return m;
}

DeclMap parameterTypes(const Method* m) {
    DeclMap d;
    for (const Parameter* p = m->parameters; p; p = p->next)
        d[lower(p->name ? p->name : "")] = {p->name ? p->name : "", Type{p->type ? p->type : "string", false, {}}};
    for (const ParameterArray* p = m->parameterArrays; p; p = p->next)
        d[lower(p->name ? p->name : "")] = {p->name ? p->name : "", Type{p->type ? p->type : "string", true, {}}};
    for (const ParameterReference* p = m->parameterReferences; p; p = p->next)
        d[lower(p->name ? p->name : "")] = {p->name ? p->name : "",
                                            Type{"reference", false, p->referenceClass ? p->referenceClass : ""}};
    for (const ParameterRefArray* p = m->parameterRefArrays; p; p = p->next)
        d[lower(p->name ? p->name : "")] = {p->name ? p->name : "",
                                            Type{"reference", true, p->referenceClass ? p->referenceClass : ""}};
    return d;
}

// Signals that an operation already reported and chose its exit code.
struct Finished {
    int code;
};

ClassPtr fetchClass(Session& s, const std::string& name) {
    ClassNamePtr cn(newClassName(name));
    Error* error = nullptr;
    ClassPtr c(CIM_GetClass(s.handle(), cn.get(), 0, 0, 0, nullptr, &error));
    if (!c) {
        int rc = s.finish(error, false);
        throw Finished{rc == kExitOk ? s.transportFailure() : rc};
    }
    Free_Error(error);
    return c;
}

bool allTyped(const std::vector<Assignment>& list) {
    for (const auto& a : list)
        if (!a.type) return false;
    return true;
}

std::vector<Assignment> parseAssignments(const std::vector<std::string>& texts) {
    std::vector<Assignment> list;
    for (const auto& t : texts) list.push_back(parseAssignment(t));
    return list;
}

// The type of an assignment: written out, or declared.
Declared typeFor(const Assignment& a, const DeclMap& declared, const std::string& what) {
    auto it = declared.find(lower(a.name));
    if (a.type) return {it != declared.end() ? it->second.name : a.name, *a.type};
    if (it == declared.end())
        throw InputError(what + " has no " + (what.find("method") == 0 ? "parameter " : "property ") + a.name +
                         " (write " + a.name + ":<type>=value to send it anyway)");
    return it->second;
}

// ---- the commands -------------------------------------------------------------

struct Options {
    std::string className, path, method, query, language = "WQL";
    std::string assocClass, resultClass, role, resultRole;
    std::vector<std::string> assignments;
    Flag localOnly, deepInheritance, includeQualifiers, includeClassOrigin;
};

ClassName* optionalClass(const std::string& name) { return name.empty() ? nullptr : newClassName(name); }
const char* optionalText(const std::string& text) { return text.empty() ? nullptr : text.c_str(); }

// A class argument: [namespace:]ClassName; empty gives NULL (no class).
ClassName* targetClass(Session& s, const std::string& text) {
    if (text.empty()) return nullptr;
    Path p = parsePath(text);
    if (!p.keys.empty()) throw InputError("'" + text + "' is an instance path: this command takes a class name");
    s.useNamespaceOf(p);
    return newClassName(p.className);
}

int classGet(Session& s, Options& o) {
    ClassNamePtr cn(targetClass(s, o.className));
    Error* error = nullptr;
    ClassPtr c(CIM_GetClass(s.handle(), cn.get(), o.localOnly.get(), o.includeQualifiers.get(),
                            o.includeClassOrigin.get(), nullptr, &error));
    int rc = s.finish(error, c != nullptr);
    if (rc == kExitOk && !c) return s.transportFailure();  // a class read never comes back empty
    if (c) s.print().classes(c.get());
    return rc;
}

int classEnumerate(Session& s, Options& o) {
    ClassNamePtr cn(targetClass(s, o.className));
    Error* error = nullptr;
    ClassPtr c(CIM_EnumerateClasses(s.handle(), cn.get(), o.deepInheritance.get(), o.localOnly.get(),
                                    o.includeQualifiers.get(), o.includeClassOrigin.get(), &error));
    int rc = s.finish(error, c != nullptr);
    if (rc == kExitOk) s.print().classes(c.get());
    return rc;
}

int classNames(Session& s, Options& o) {
    ClassNamePtr cn(targetClass(s, o.className));
    Error* error = nullptr;
    ClassNamePtr names(EnumerateClassNames(s.handle(), cn.get(), o.deepInheritance.get(), &error));
    int rc = s.finish(error, names != nullptr);
    if (rc == kExitOk) s.print().classNames(names.get());
    return rc;
}

InstanceNamePtr targetInstance(Session& s, const std::string& text) {
    Path p = parsePath(text);
    if (p.keys.empty()) throw InputError("'" + text + "' names a class: an instance path has keys, e.g. " +
                                         p.className + ".Name=\"x\"");
    s.useNamespaceOf(p);
    return InstanceNamePtr(newInstanceName(p));
}

int instanceGet(Session& s, Options& o) {
    InstanceNamePtr name = targetInstance(s, o.path);
    Error* error = nullptr;
    InstancePtr inst(GetInstance(s.handle(), name.get(), o.localOnly.get(), o.includeQualifiers.get(),
                                 o.includeClassOrigin.get(), nullptr, &error));
    int rc = s.finish(error, inst != nullptr);
    if (rc == kExitOk && !inst) return s.transportFailure();
    if (inst) s.print().instance(inst.get(), name.get());
    return rc;
}

int instanceEnumerate(Session& s, Options& o) {
    ClassNamePtr cn(targetClass(s, o.className));
    Error* error = nullptr;
    Owned<NamedInstance, Free_NamedInstance> list(EnumerateInstances(s.handle(), cn.get(), o.localOnly.get(),
                                                                     o.deepInheritance.get(), o.includeQualifiers.get(),
                                                                     o.includeClassOrigin.get(), nullptr, &error));
    int rc = s.finish(error, list != nullptr);
    if (rc == kExitOk) s.print().namedInstances(list.get());
    return rc;
}

int instanceNames(Session& s, Options& o) {
    ClassNamePtr cn(targetClass(s, o.className));
    Error* error = nullptr;
    InstanceNamePtr list(EnumerateInstanceNames(s.handle(), cn.get(), &error));
    int rc = s.finish(error, list != nullptr);
    if (rc == kExitOk) s.print().instanceNames(list.get());
    return rc;
}

// An instance of className with the given properties, typed by the class.
InstancePtr buildInstance(Session& s, const std::string& className, const std::vector<std::string>& texts) {
    std::vector<Assignment> list = parseAssignments(texts);
    DeclMap declared;
    if (!allTyped(list)) declared = propertyTypes(fetchClass(s, className).get());
    InstancePtr inst(static_cast<Instance*>(std::calloc(1, sizeof(Instance))));
    if (!inst) throw std::bad_alloc();
    inst->className = newClassName(className);
    for (const auto& a : list) {
        Declared d = typeFor(a, declared, "class " + className);
        addProperty(inst.get(), d.name, d.type, parseValue(a.value, d.type));
    }
    return inst;
}

int instanceCreate(Session& s, Options& o) {
    ClassNamePtr cn(targetClass(s, o.className));
    InstancePtr inst = buildInstance(s, cn->name, o.assignments);
    Error* error = nullptr;
    InstanceNamePtr created(CIM_CreateInstance(s.handle(), inst.get(), &error));
    int rc = s.finish(error, created != nullptr);
    if (rc == kExitOk && !created) return s.transportFailure();
    if (created) s.print().instanceNames(created.get());
    return rc;
}

int instanceModify(Session& s, Options& o) {
    InstanceNamePtr name = targetInstance(s, o.path);
    if (o.assignments.empty()) throw InputError("modify needs at least one Name=value");
    InstancePtr inst = buildInstance(s, name->className->name, o.assignments);
    if (!s.reachable()) return s.transportFailure();
    NamedInstance modified{name.get(), inst.get(), nullptr};
    Error* error = nullptr;
    // The result is not a record (NULL over HTTP, a code on the local
    // broker): never freed.
    ModifyInstance(s.handle(), &modified, o.includeQualifiers.get(), nullptr, &error);
    return s.finish(error, true);
}

int instanceDelete(Session& s, Options& o) {
    InstanceNamePtr name = targetInstance(s, o.path);
    if (!s.reachable()) return s.transportFailure();
    Error* error = nullptr;
    DeleteInstance(s.handle(), name.get(), &error);  // gives back NULL or its argument: not ours to free
    return s.finish(error, true);
}

// The object of an association operation: a class, or an instance.
struct Target {
    InstanceNamePtr instance;
    ClassNamePtr cls;
    ObjectName object{};
};

void makeTarget(Session& s, const std::string& text, Target& t) {
    Path p = parsePath(text);
    s.useNamespaceOf(p);
    if (p.keys.empty()) {
        t.cls.reset(newClassName(p.className));
        t.object.className = t.cls.get();
    } else {
        t.instance.reset(newInstanceName(p));
        t.object.instanceName = t.instance.get();
    }
}

int associators(Session& s, Options& o) {
    Target t;
    makeTarget(s, o.path, t);
    ClassNamePtr assoc(optionalClass(o.assocClass)), result(optionalClass(o.resultClass));
    Error* error = nullptr;
    Owned<ObjectWithPath, Free_ObjectWithPath> list(
        Associators(s.handle(), &t.object, assoc.get(), result.get(), optionalText(o.role), optionalText(o.resultRole),
                    o.includeQualifiers.get(), o.includeClassOrigin.get(), nullptr, &error));
    int rc = s.finish(error, list != nullptr);
    if (rc == kExitOk) s.print().objectsWithPath(list.get());
    return rc;
}

int associatorNames(Session& s, Options& o) {
    Target t;
    makeTarget(s, o.path, t);
    ClassNamePtr assoc(optionalClass(o.assocClass)), result(optionalClass(o.resultClass));
    Error* error = nullptr;
    Owned<ObjectPath, Free_ObjectPath> list(AssociatorNames(s.handle(), &t.object, assoc.get(), result.get(),
                                                            optionalText(o.role), optionalText(o.resultRole), &error));
    int rc = s.finish(error, list != nullptr);
    if (rc == kExitOk) s.print().objectPaths(list.get());
    return rc;
}

int references(Session& s, Options& o) {
    Target t;
    makeTarget(s, o.path, t);
    ClassNamePtr result(optionalClass(o.resultClass));
    Error* error = nullptr;
    Owned<ObjectWithPath, Free_ObjectWithPath> list(References(s.handle(), &t.object, result.get(),
                                                               optionalText(o.role), o.includeQualifiers.get(),
                                                               o.includeClassOrigin.get(), nullptr, &error));
    int rc = s.finish(error, list != nullptr);
    if (rc == kExitOk) s.print().objectsWithPath(list.get());
    return rc;
}

int referenceNames(Session& s, Options& o) {
    Target t;
    makeTarget(s, o.path, t);
    ClassNamePtr result(optionalClass(o.resultClass));
    Error* error = nullptr;
    Owned<ObjectPath, Free_ObjectPath> list(
        ReferenceNames(s.handle(), &t.object, result.get(), optionalText(o.role), &error));
    if (!list && !error) {
        // The library reads only bare instance names here; object managers
        // that answer with object paths are asked for the references
        // themselves, and their paths are printed.
        Owned<ObjectWithPath, Free_ObjectWithPath> objects(
            References(s.handle(), &t.object, result.get(), optionalText(o.role), 0, 0, nullptr, &error));
        int rc = s.finish(error, objects != nullptr);
        if (rc == kExitOk) s.print().paths(objects.get());
        return rc;
    }
    int rc = s.finish(error, list != nullptr);
    if (rc == kExitOk) s.print().objectPaths(list.get());
    return rc;
}

int methodInvoke(Session& s, Options& o) {
    Path p = parsePath(o.path);
    s.useNamespaceOf(p);
    InstanceNamePtr target(newInstanceName(p));  // no keys: the call goes to the class
    std::vector<Assignment> list = parseAssignments(o.assignments);
    DeclMap declared;
    std::string what = "method " + p.className + "." + o.method;
    if (!allTyped(list)) {
        ClassPtr c = fetchClass(s, p.className);
        const Method* m = c->methods;
        while (m && lower(m->name ? m->name : "") != lower(o.method)) m = m->next;
        if (!m) throw InputError("class " + p.className + " declares no method " + o.method);
        declared = parameterTypes(m);
    }
    ParamValuePtr in;
    for (const auto& a : list) {
        Declared d = typeFor(a, declared, what);
        ParamValue* head = in.release();
        try {
            addParam(&head, d.name, d.type, parseValue(a.value, d.type));
        } catch (...) {
            in.reset(head);
            throw;
        }
        in.reset(head);
    }
    ParamValue* rawOut = nullptr;
    Error* error = nullptr;
    int status = invokeMethod(s.handle(), target.get(), o.method.c_str(), in.get(), &rawOut, &error);
    ParamValuePtr out(rawOut);
    if (status != 0 && !error) return s.transportFailure();
    int rc = s.finish(error, true);
    if (rc == kExitOk) s.print().methodResult(out.get());
    return rc;
}

int query(Session& s, Options& o) {
    std::string text = requestText(o.query);
    Error* error = nullptr;
    Owned<ObjectWithPath, Free_ObjectWithPath> list(
        ExecQuery(s.handle(), o.language.c_str(), text.c_str(), &error));
    int rc = s.finish(error, list != nullptr);
    if (rc == kExitOk) s.print().objectsWithPath(list.get());
    return rc;
}

// ---- bash completion ------------------------------------------------------------

// Each command path ("_" for none) maps to its subcommands and options.
void collectCompletion(const CLI::App* app, const std::string& path, const std::string& globalOptions,
                       std::ostream& out) {
    std::string words;
    for (const CLI::App* sub : app->get_subcommands({})) words += " " + sub->get_name();
    for (const CLI::Option* opt : app->get_options({}))
        for (const auto& l : opt->get_lnames())
            if (l != "help") words += " --" + l;
    out << "  [\"" << path << "\"]=\"" << words.substr(words.empty() ? 0 : 1) << globalOptions << "\"\n";
    for (const CLI::App* sub : app->get_subcommands({}))
        collectCompletion(sub, path == "_" ? sub->get_name() : path + " " + sub->get_name(), globalOptions, out);
}

void printCompletion(const CLI::App& app, std::ostream& out) {
    std::string global;
    for (const CLI::Option* opt : app.get_options({}))
        for (const auto& l : opt->get_lnames()) global += " --" + l;
    out << "# bash completion for cimxml: source <(cimxml completion bash)\n"
        << "declare -gA _cimxml_words=(\n";
    std::string top;
    for (const CLI::App* sub : app.get_subcommands({})) top += " " + sub->get_name();
    out << "  [\"_\"]=\"" << top.substr(1) << global << "\"\n";
    for (const CLI::App* sub : app.get_subcommands({})) collectCompletion(sub, sub->get_name(), global, out);
    out << ")\n"
           "_cimxml() {\n"
           "  local cur=${COMP_WORDS[COMP_CWORD]} path=\"\" next i\n"
           "  for ((i = 1; i < COMP_CWORD; i++)); do\n"
           "    next=\"${path:+$path }${COMP_WORDS[i]}\"\n"
           "    [[ -n \"${_cimxml_words[$next]+x}\" ]] && path=$next\n"
           "  done\n"
           "  COMPREPLY=($(compgen -W \"${_cimxml_words[${path:-_}]}\" -- \"$cur\"))\n"
           "}\n"
           "complete -o default -F _cimxml cimxml\n";
}

// ---- the command tree -------------------------------------------------------------

using Action = std::function<int(Session&, Options&)>;

CLI::App* command(CLI::App* parent, const std::string& name, const std::string& help, const std::string& example,
                  std::vector<std::pair<CLI::App*, Action>>& actions, Action action) {
    CLI::App* sub = parent->add_subcommand(name, help);
    sub->footer("Example:\n  " + example);
    actions.emplace_back(sub, std::move(action));
    return sub;
}

void addAssocOptions(CLI::App* c, Options& o, bool withAssocClass, bool withResultRole) {
    c->add_option("object", o.path, "instance path, or a class name for the class-level operation")->required();
    if (withAssocClass) c->add_option("--assoc-class", o.assocClass, "only through this association class");
    c->add_option("--result-class", o.resultClass,
                  withAssocClass ? "only results of this class" : "only associations of this class");
    c->add_option("--role", o.role, "the role the object plays in the association");
    if (withResultRole) c->add_option("--result-role", o.resultRole, "the role the results play");
}

}  // namespace

int run(int argc, char** argv, std::ostream& out, std::ostream& err) {
    CLI::App app{"cimxml: run CIM operations against a CIM object manager (CIM-XML over HTTP, or the local broker)"};
    app.name("cimxml");
    app.fallthrough();  // connection options may also follow the command
    app.require_subcommand(1);
    app.footer(
        "Connection defaults come from CIMXML_URL (http://user@host:port/namespace); options override it.\n"
        "The password is read from CIMXML_PASSWORD, or asked for when standard input is a terminal.\n"
        "Exit codes: 0 success, 1 CIM error, 2 usage error, 3 authentication failure, 4 transport failure.\n"
        "Example:\n  cimxml --host 127.0.0.1 --port 5988 instance enumerate CIM_Processor");

    Settings settings;
    Options o;
    std::string output = "text";
    CLI::Option* hostOpt = app.add_option("--host", settings.host, "object manager host (default 127.0.0.1)");
    CLI::Option* portOpt =
        app.add_option("--port", settings.port, "TCP port (default 5988)")->check(CLI::Range(1, 65535));
    CLI::Option* nsOpt = app.add_option("-n,--namespace", settings.nameSpace, "CIM namespace (default root/cimv2)");
    CLI::Option* userOpt = app.add_option("-u,--user", settings.user, "user name for Basic authentication");
    app.add_option("--timeout", settings.timeoutSeconds, "time-out in seconds (default 30)")
        ->check(CLI::Range(1, 86400));
    app.add_flag("--local", settings.local, "use the local broker instead of HTTP");
    app.add_option("-o,--output", output, "output format: text (MOF-like), json or xml (CIM-XML)")
        ->check(CLI::IsMember({"text", "json", "xml"}));

    std::vector<std::pair<CLI::App*, Action>> actions;

    CLI::App* cls = app.add_subcommand("class", "read class declarations")->require_subcommand(1);
    cls->footer("Example:\n  cimxml class names CIM_LogicalDevice --deep-inheritance");
    CLI::App* c = command(cls, "get", "GetClass: one class declaration", "cimxml class get CIM_Processor --include-qualifiers",
                          actions, classGet);
    c->add_option("class", o.className, "class name")->required();
    addFlag(c, o.localOnly, "local-only", "only the features the class itself defines");
    addFlag(c, o.includeQualifiers, "include-qualifiers", "send qualifiers");
    addFlag(c, o.includeClassOrigin, "include-class-origin", "say which class defines each feature");
    c = command(cls, "enumerate", "EnumerateClasses: subclass declarations",
                "cimxml class enumerate CIM_LogicalDevice --deep-inheritance", actions, classEnumerate);
    c->add_option("class", o.className, "base class (default: the top-level classes)");
    addFlag(c, o.deepInheritance, "deep-inheritance", "all subclasses, not only direct ones");
    addFlag(c, o.localOnly, "local-only", "only the features each class itself defines");
    addFlag(c, o.includeQualifiers, "include-qualifiers", "send qualifiers");
    addFlag(c, o.includeClassOrigin, "include-class-origin", "say which class defines each feature");
    c = command(cls, "names", "EnumerateClassNames: subclass names", "cimxml class names CIM_LogicalDevice --deep-inheritance",
                actions, classNames);
    c->add_option("class", o.className, "base class (default: the top-level classes)");
    addFlag(c, o.deepInheritance, "deep-inheritance", "all subclasses, not only direct ones");

    CLI::App* inst = app.add_subcommand("instance", "read and change instances")->require_subcommand(1);
    inst->footer("Example:\n  cimxml instance enumerate CIM_Processor --output json");
    c = command(inst, "get", "GetInstance: one instance by its path",
                "cimxml instance get 'Mock_Processor.CreationClassName=\"Mock_Processor\",DeviceID=\"CPU0\","
                "SystemCreationClassName=\"Mock_ComputerSystem\",SystemName=\"mock-server.example.com\"'",
                actions, instanceGet);
    c->add_option("path", o.path, "instance path: Class.Key=\"value\",Key2=3")->required();
    addFlag(c, o.localOnly, "local-only", "only the properties the class itself defines");
    addFlag(c, o.includeQualifiers, "include-qualifiers", "send qualifiers");
    addFlag(c, o.includeClassOrigin, "include-class-origin", "say which class defines each property");
    c = command(inst, "enumerate", "EnumerateInstances: the instances of a class and its subclasses",
                "cimxml instance enumerate CIM_Processor", actions, instanceEnumerate);
    c->add_option("class", o.className, "class name")->required();
    addFlag(c, o.localOnly, "local-only", "only the properties the class itself defines");
    addFlag(c, o.deepInheritance, "deep-inheritance", "include the properties subclasses add");
    addFlag(c, o.includeQualifiers, "include-qualifiers", "send qualifiers");
    addFlag(c, o.includeClassOrigin, "include-class-origin", "say which class defines each property");
    c = command(inst, "names", "EnumerateInstanceNames: the paths of a class's instances",
                "cimxml instance names CIM_Processor", actions, instanceNames);
    c->add_option("class", o.className, "class name")->required();
    c = command(inst, "create", "CreateInstance: a new instance from Name=value properties",
                "cimxml instance create Mock_Processor DeviceID=CPU9 CreationClassName=Mock_Processor "
                "SystemCreationClassName=Mock_ComputerSystem SystemName=mock-server.example.com MaxClockSpeed=1000",
                actions, instanceCreate);
    c->add_option("class", o.className, "class name")->required();
    c->add_option("properties", o.assignments, "Name=value or Name:type=value; types come from the class");
    c = command(inst, "modify", "ModifyInstance: change the named properties only",
                "cimxml instance modify 'Mock_Processor.DeviceID=\"CPU9\",...' ElementName=\"new name\"", actions,
                instanceModify);
    c->add_option("path", o.path, "instance path")->required();
    c->add_option("properties", o.assignments, "Name=value or Name:type=value; NULL clears a property")->required();
    addFlag(c, o.includeQualifiers, "include-qualifiers", "the instance's qualifiers are to be changed too");
    c = command(inst, "delete", "DeleteInstance: remove an instance",
                "cimxml instance delete 'Mock_Processor.DeviceID=\"CPU9\",...'", actions, instanceDelete);
    c->add_option("path", o.path, "instance path")->required();

    CLI::App* assoc = app.add_subcommand("assoc", "follow associations")->require_subcommand(1);
    assoc->footer("Example:\n  cimxml assoc associator-names 'CIM_Foo.Id=1' --assoc-class CIM_FooBar");
    c = command(assoc, "associators", "Associators: the objects associated with an object",
                "cimxml assoc associators 'Mock_ComputerSystem.CreationClassName=\"Mock_ComputerSystem\","
                "Name=\"mock-server.example.com\"' --assoc-class CIM_SystemDevice",
                actions, associators);
    addAssocOptions(c, o, true, true);
    addFlag(c, o.includeQualifiers, "include-qualifiers", "send qualifiers");
    addFlag(c, o.includeClassOrigin, "include-class-origin", "say which class defines each property");
    c = command(assoc, "associator-names", "AssociatorNames: the paths of the associated objects",
                "cimxml assoc associator-names 'Mock_ComputerSystem.CreationClassName=\"Mock_ComputerSystem\","
                "Name=\"mock-server.example.com\"' --result-class CIM_Processor",
                actions, associatorNames);
    addAssocOptions(c, o, true, true);
    c = command(assoc, "references", "References: the association instances that refer to an object",
                "cimxml assoc references 'Mock_ComputerSystem.CreationClassName=\"Mock_ComputerSystem\","
                "Name=\"mock-server.example.com\"' --role GroupComponent",
                actions, references);
    addAssocOptions(c, o, false, false);
    addFlag(c, o.includeQualifiers, "include-qualifiers", "send qualifiers");
    addFlag(c, o.includeClassOrigin, "include-class-origin", "say which class defines each property");
    c = command(assoc, "reference-names", "ReferenceNames: the paths of the association instances",
                "cimxml assoc reference-names 'Mock_ComputerSystem.CreationClassName=\"Mock_ComputerSystem\","
                "Name=\"mock-server.example.com\"'",
                actions, referenceNames);
    addAssocOptions(c, o, false, false);

    CLI::App* method = app.add_subcommand("method", "call extrinsic methods")->require_subcommand(1);
    method->footer("Example:\n  cimxml method invoke 'CIM_Foo.Id=1' RequestStateChange RequestedState=3");
    c = command(method, "invoke", "call a method on an instance, or on a class (static methods)",
                "cimxml method invoke Mock_AllTypes Echo S=hello U32=42 'SArray=[a,\"b,c\"]'", actions, methodInvoke);
    c->add_option("object", o.path, "instance path, or a class name")->required();
    c->add_option("method", o.method, "method name")->required();
    c->add_option("parameters", o.assignments, "Name=value or Name:type=value; types come from the method");

    c = command(&app, "query", "ExecQuery: run a query", "cimxml query 'SELECT * FROM CIM_Processor WHERE LoadPercentage > 50'",
                actions, query);
    c->add_option("query", o.query, "the query text")->required();
    c->add_option("-l,--language", o.language, "query language (default WQL)");

    CLI::App* completion = app.add_subcommand("completion", "print a shell completion script");
    std::string shell;
    completion->add_option("shell", shell, "shell (bash)")->required()->check(CLI::IsMember({"bash"}));
    completion->footer("Example:\n  source <(cimxml completion bash)");

    try {
        app.parse(argc, argv);
    } catch (const CLI::ParseError& e) {
        int code = app.exit(e, out, err);
        return code == 0 ? kExitOk : kExitUsage;
    }
    if (completion->parsed()) {
        printCompletion(app, out);
        return kExitOk;
    }

    try {
        // CIMXML_URL first, then the options written out.
        if (const char* url = std::getenv("CIMXML_URL"); url && *url) {
            Url u = parseUrl(url);
            if (!hostOpt->count()) settings.host = u.host;
            if (!portOpt->count() && u.port) settings.port = u.port;
            if (!nsOpt->count() && !u.nameSpace.empty()) settings.nameSpace = u.nameSpace;
            if (!userOpt->count() && !u.user.empty()) settings.user = u.user;
        }
        std::string ip = resolveHost(settings.host);
        if (ip.empty()) {
            err << "cimxml: cannot resolve host '" << settings.host << "' to an IPv4 address\n";
            return kExitTransport;
        }
        std::string password;
        if (const char* p = std::getenv("CIMXML_PASSWORD")) {
            password = p;
        } else if (!settings.user.empty()) {
            password = askPassword(settings.user, err);
        }
        ClientHandle* handle = client_Configuration(ip.c_str(), settings.port, settings.nameSpace.c_str(),
                                                    settings.timeoutSeconds * 1000, settings.user.c_str(),
                                                    password.c_str());
        if (!handle) throw std::bad_alloc();
        if (settings.local) {
            handle->interfaceType = 1;
            // The library reports a missing broker only as an empty result.
            void* broker = dlopen("libcimcClientSfcbLocal.so", RTLD_LAZY | RTLD_LOCAL);
            if (!broker) {
                Free_client_Configuration(handle);
                err << "cimxml: the local broker library libcimcClientSfcbLocal.so cannot be loaded\n";
                return kExitTransport;
            }
            dlclose(broker);
        }
        Format format = output == "json" ? Format::Json : output == "xml" ? Format::Xml : Format::Text;
        Session session(settings, ip, handle, format, out, err);
        for (auto& [sub, action] : actions)
            if (sub->parsed()) return action(session, o);
        err << "cimxml: no command\n";
        return kExitUsage;
    } catch (const InputError& e) {
        err << "cimxml: " << e.what() << "\n";
        return kExitUsage;
    } catch (const Finished& f) {
        return f.code;
    } catch (const std::bad_alloc&) {
        err << "cimxml: out of memory\n";
        return kExitTransport;
    }
}

}  // namespace cimcli
