// cimmock/repository.h - an in-memory CIM repository, free of any protocol.
//
// Shared by the mock CIM-XML object manager (testing/server) and the mock
// local broker.  Names (namespaces, classes, properties, qualifiers,
// methods) are case-insensitive and keep the spelling they were declared
// with.  Operations that fail throw cimmock::CimError carrying a standard
// CIM status code.
#pragma once

#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <stdexcept>
#include <string>
#include <vector>

namespace cimmock {

// Standard CIM status codes (DSP0200).
enum CimStatus {
  CIM_ERR_FAILED = 1,
  CIM_ERR_ACCESS_DENIED = 2,
  CIM_ERR_INVALID_NAMESPACE = 3,
  CIM_ERR_INVALID_PARAMETER = 4,
  CIM_ERR_INVALID_CLASS = 5,
  CIM_ERR_NOT_FOUND = 6,
  CIM_ERR_NOT_SUPPORTED = 7,
  CIM_ERR_CLASS_HAS_CHILDREN = 8,
  CIM_ERR_CLASS_HAS_INSTANCES = 9,
  CIM_ERR_INVALID_SUPERCLASS = 10,
  CIM_ERR_ALREADY_EXISTS = 11,
  CIM_ERR_NO_SUCH_PROPERTY = 12,
  CIM_ERR_TYPE_MISMATCH = 13,
  CIM_ERR_QUERY_LANGUAGE_NOT_SUPPORTED = 14,
  CIM_ERR_INVALID_QUERY = 15,
  CIM_ERR_METHOD_NOT_AVAILABLE = 16,
  CIM_ERR_METHOD_NOT_FOUND = 17,
};

struct CimError : std::runtime_error {
  CimError(int code, const std::string& description)
      : std::runtime_error(description), code(code) {}
  int code;
};

enum class Type {
  Boolean, String, Char16, DateTime,
  Uint8, Sint8, Uint16, Sint16, Uint32, Sint32, Uint64, Sint64,
  Real32, Real64, Reference
};
// "boolean", "string", ..., "reference".
const char* typeName(Type t);
// Parses a type name (case-insensitive); false if unknown.
bool parseTypeName(const std::string& name, Type* out);
bool isIntegerType(Type t);
bool isSignedType(Type t);
bool isRealType(Type t);

struct Instance;
struct ObjectPath;

// One key of an instance path.  A key of type Reference carries `ref`.
struct KeyBinding {
  std::string name;
  Type type = Type::String;
  std::string text;                 // canonical value text (not for refs)
  std::shared_ptr<ObjectPath> ref;  // for Type::Reference
  // "string", "boolean" or "numeric" (the CIM-XML VALUETYPE).
  const char* valueType() const;
};

// A class path (no keys) or an instance path.
struct ObjectPath {
  std::string host;       // empty = local
  std::string nameSpace;  // empty = unspecified
  std::string className;
  std::vector<KeyBinding> keys;
  bool isClassPath() const { return keys.empty(); }
  // Canonical text: ns:Class.k1="v",k2=3 (keys sorted, names lower case).
  std::string toString() const;
  // Untyped (MOF / WBEM URI style): Class.Name="x",Id=3 ; throws CimError(4).
  static ObjectPath parse(const std::string& text);
};
// Same class (case-insensitive) and same keys (names case-insensitive,
// values compared by type); namespaces are compared only if both are set.
bool samePath(const ObjectPath& a, const ObjectPath& b);

// A value: scalar or array, of one CIM type, possibly NULL.  Texts are kept
// in canonical CIM-XML form: booleans "TRUE"/"FALSE", integers in decimal,
// reals as written, datetimes as the 25-character string.
struct Value {
  Type type = Type::String;
  bool isArray = false;
  bool isNull = true;
  std::vector<std::string> texts;                     // non-reference items
  std::vector<ObjectPath> refs;                       // Type::Reference items
  std::vector<std::shared_ptr<Instance>> embedded;    // embedded instances (string typed)

  static Value null(Type t, bool array = false);
  static Value str(const std::string& s);
  static Value boolean(bool b);
  static Value uint(Type t, std::uint64_t v);
  static Value sint(Type t, std::int64_t v);
  static Value text(Type t, const std::string& canonical);
  static Value reference(const ObjectPath& p);
  static Value embeddedInstance(const Instance& inst);
  std::size_t size() const;  // number of items
  bool isEmbedded() const { return !embedded.empty(); }
  // Scalar text ("" when null); for references the path text.
  std::string asText() const;
};

// Qualifier flavors (defaults as DSP0004).
struct Flavor {
  bool overridable = true;
  bool toSubclass = true;
  bool translatable = false;
};

struct Qualifier {
  std::string name;
  Value value;
  Flavor flavor;
  bool propagated = false;  // inherited from the superclass
};

struct QualifierDecl {
  std::string name;
  Type type = Type::Boolean;
  bool isArray = false;
  int arraySize = 0;
  Value defaultValue;
  std::vector<std::string> scopes;  // "class", "property", ..., "any"
  Flavor flavor;
};

using QualifierList = std::vector<Qualifier>;
const Qualifier* findQualifier(const QualifierList& q, const std::string& name);

struct Property {
  std::string name;
  Type type = Type::String;
  bool isArray = false;
  int arraySize = 0;             // fixed size, 0 = variable
  std::string referenceClass;    // Type::Reference
  QualifierList qualifiers;
  Value value;                   // default (class) or value (instance)
  std::string classOrigin;
  bool propagated = false;
  bool isKey() const;
  // Class name of an EmbeddedInstance qualifier ("" if none); "*" for
  // EmbeddedObject.
  std::string embeddedClass() const;
};

struct Parameter {
  std::string name;
  Type type = Type::String;
  bool isArray = false;
  int arraySize = 0;
  std::string referenceClass;
  QualifierList qualifiers;
  bool isIn() const;   // In qualifier (default true)
  bool isOut() const;  // Out qualifier
};

struct Method {
  std::string name;
  Type returnType = Type::Uint32;
  std::vector<Parameter> parameters;
  QualifierList qualifiers;
  std::string classOrigin;
  bool propagated = false;
  const Parameter* findParameter(const std::string& name) const;
};

struct Class {
  std::string name;
  std::string superClass;
  QualifierList qualifiers;
  std::vector<Property> properties;  // resolved: inherited ones first
  std::vector<Method> methods;
  bool isAssociation() const;
  bool isAbstract() const;
  const Property* findProperty(const std::string& name) const;
  Property* findProperty(const std::string& name);
  const Method* findMethod(const std::string& name) const;
  std::vector<std::string> keyNames() const;
};

struct Instance {
  std::string className;
  QualifierList qualifiers;
  std::vector<Property> properties;
  const Property* findProperty(const std::string& name) const;
  Property* findProperty(const std::string& name);
  // Sets (or adds, typed as given) a property value.
  void set(const std::string& name, const Value& v);
};

// What GetClass/EnumerateClasses/instance reads return.
struct ReadOptions {
  bool localOnly = false;
  bool includeQualifiers = true;
  bool includeClassOrigin = false;
  bool deepInheritance = true;       // instances: false = only the
                                     // properties of the requested class
  bool hasPropertyList = false;      // false = all properties
  std::vector<std::string> propertyList;
};

// An instance with its path, as returned by enumerations and queries.
struct PathedInstance {
  ObjectPath path;
  Instance instance;
};

// A parameter value passed to or returned from a method.
struct ParamValue {
  std::string name;
  Value value;
};

struct MethodResult {
  Value returnValue;
  std::vector<ParamValue> out;
};

class Repository;
// Context handed to a method behaviour.
struct MethodCall {
  Repository& repo;
  std::string nameSpace;
  ObjectPath target;           // class path or instance path
  const Class& cls;
  const Method& method;
  std::vector<ParamValue> in;  // typed by the method's declaration
  const ParamValue* findIn(const std::string& name) const;
};
using MethodBehaviour = std::function<MethodResult(MethodCall&)>;

class Repository {
public:
  Repository();
  ~Repository();
  Repository(const Repository&);
  Repository& operator=(const Repository&);

  // --- namespaces ---------------------------------------------------------
  void addNamespace(const std::string& ns);  // no-op if present
  bool hasNamespace(const std::string& ns) const;
  std::vector<std::string> namespaces() const;

  // --- qualifier declarations --------------------------------------------
  void addQualifierDecl(const std::string& ns, const QualifierDecl& decl);
  const QualifierDecl* qualifierDecl(const std::string& ns, const std::string& name) const;
  std::vector<QualifierDecl> qualifierDecls(const std::string& ns) const;

  // --- classes -------------------------------------------------------------
  // Adds a class given with its local features only; inherited properties,
  // methods and (ToSubclass) qualifiers are resolved from the superclass,
  // which must exist.  Throws CimError (ALREADY_EXISTS, INVALID_SUPERCLASS,
  // INVALID_NAMESPACE).
  void addClass(const std::string& ns, const Class& localClass);
  // The resolved class or nullptr.
  const Class* findClass(const std::string& ns, const std::string& name) const;
  // GetClass semantics (throws INVALID_NAMESPACE / NOT_FOUND).
  Class getClass(const std::string& ns, const std::string& name, const ReadOptions& ro) const;
  // EnumerateClassNames / EnumerateClasses semantics: className empty =
  // from the root.  deep=false: direct subclasses only.
  std::vector<std::string> enumerateClassNames(const std::string& ns, const std::string& className, bool deep) const;
  std::vector<Class> enumerateClasses(const std::string& ns, const std::string& className, bool deep, const ReadOptions& ro) const;
  // True if cls is base or derives from it (case-insensitive).
  bool isA(const std::string& ns, const std::string& cls, const std::string& base) const;

  // --- instances -----------------------------------------------------------
  // The instance path of an instance (from the key properties of its class).
  ObjectPath pathOf(const std::string& ns, const Instance& inst) const;
  // Instances of className and, when deep, of its subclasses (every
  // instance property is included; use filterInstance to shape them).
  std::vector<PathedInstance> instancesOf(const std::string& ns, const std::string& className) const;
  // The same instances, in the same order, handed to fn in place instead of
  // copied, with the namespace as it was declared (for pathOf). fn must not
  // change the repository.
  void visitInstancesOf(const std::string& ns, const std::string& className,
                        const std::function<void(const std::string& nsName, const Instance&)>& fn) const;
  std::vector<ObjectPath> instanceNames(const std::string& ns, const std::string& className) const;
  // Shapes an instance for a reply: property list, local-only/deep
  // filtering against `requestedClass`, qualifiers, class origin.
  Instance filterInstance(const std::string& ns, const Instance& inst, const std::string& requestedClass,
                          const ReadOptions& ro) const;
  // Throws NOT_FOUND / INVALID_CLASS / INVALID_NAMESPACE.
  Instance getInstance(const std::string& ns, const ObjectPath& path) const;
  const Instance* findInstance(const std::string& ns, const ObjectPath& path) const;
  // Fills missing properties with the class defaults, checks the keys;
  // returns the new path.  Throws ALREADY_EXISTS, INVALID_CLASS,
  // INVALID_PARAMETER (missing key, unknown property), TYPE_MISMATCH.
  ObjectPath createInstance(const std::string& ns, const Instance& inst);
  // Replaces the values of the given properties (all properties of `inst`
  // when propertyList is null).  Keys cannot change.  Throws NOT_FOUND.
  void modifyInstance(const std::string& ns, const ObjectPath& path, const Instance& inst,
                      const std::vector<std::string>* propertyList = nullptr);
  void deleteInstance(const std::string& ns, const ObjectPath& path);

  // --- associations --------------------------------------------------------
  // Instance-level association traversal (DSP0200 semantics).  Empty
  // filter strings mean "no filter".
  std::vector<PathedInstance> associators(const std::string& ns, const ObjectPath& object,
                                          const std::string& assocClass, const std::string& resultClass,
                                          const std::string& role, const std::string& resultRole) const;
  std::vector<PathedInstance> references(const std::string& ns, const ObjectPath& object,
                                         const std::string& resultClass, const std::string& role) const;
  // Class-level traversal (object is a class path): classes.
  std::vector<std::string> associatorClasses(const std::string& ns, const std::string& className,
                                             const std::string& assocClass, const std::string& resultClass,
                                             const std::string& role, const std::string& resultRole) const;
  std::vector<std::string> referenceClasses(const std::string& ns, const std::string& className,
                                            const std::string& resultClass, const std::string& role) const;

  // --- queries -------------------------------------------------------------
  // WQL subset: SELECT * | p1, p2 FROM Class [WHERE cond], cond made of
  // `prop op literal` (op = < <= > >= <> != , LIKE), `prop IS [NOT] NULL`,
  // AND, OR, NOT and parentheses; literals: 'str' "str", numbers, TRUE,
  // FALSE, NULL.  Throws QUERY_LANGUAGE_NOT_SUPPORTED / INVALID_QUERY.
  std::vector<PathedInstance> execQuery(const std::string& ns, const std::string& language,
                                        const std::string& query) const;

  // --- extrinsic methods ---------------------------------------------------
  // Behaviours are chosen per method by its MockBehavior("name") qualifier,
  // or registered for Class.Method with setMethodBehaviour.  Built in:
  //   "Echo"        every IN parameter comes back as the OUT parameter of
  //                 the same name (when declared Out, else still returned);
  //                 returns 0.
  //   "SetProperty" every IN parameter that names a property of the target
  //                 instance sets that property; with MockProperty("P")
  //                 the single IN parameter sets property P; returns 0.
  //   "Return"      returns the value of the MockReturn qualifier (or 0).
  //   "Fail"        throws CIM_ERR_FAILED.
  // A method with no behaviour returns 0 and no out parameters.
  void registerBehaviour(const std::string& name, MethodBehaviour fn);
  void setMethodBehaviour(const std::string& className, const std::string& method, MethodBehaviour fn);
  // Throws INVALID_NAMESPACE, NOT_FOUND (instance), INVALID_CLASS,
  // METHOD_NOT_FOUND, INVALID_PARAMETER (unknown parameter).
  MethodResult invokeMethod(const std::string& ns, const ObjectPath& target, const std::string& method,
                            const std::vector<ParamValue>& in);

  // Counts for tests.
  std::size_t instanceCount(const std::string& ns) const;

  struct Data;
private:
  std::unique_ptr<Data> d_;
};

// Case-insensitive equality for CIM names.
bool iequals(const std::string& a, const std::string& b);
std::string toLower(std::string s);

// Converts a text to the canonical text for `t`.  Throws CimError(
// TYPE_MISMATCH) when the text is no value of the type (integers may be
// decimal, 0x hex, or binary; booleans any case).
std::string canonicalText(Type t, const std::string& text);
// Compares two canonical texts of type t: <0, 0, >0.
int compareValues(Type t, const std::string& a, const std::string& b);

}  // namespace cimmock
