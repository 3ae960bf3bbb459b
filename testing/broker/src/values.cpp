// Broker values: copying callers' values in, data items out, datetimes, and
// the conversions to and from the repository's canonical texts.
#include <cinttypes>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>

#include "broker.h"

namespace broker {

using cimmock::CimError;
using cimmock::Type;

namespace {
constexpr CIMCType kArray = CIMC_ARRAY;


struct TypeMap {
  Type t;
  CIMCType code;
};
const TypeMap kTypeMap[] = {
    {Type::Boolean, CIMC_boolean}, {Type::String, CIMC_string}, {Type::Char16, CIMC_char16},
    {Type::DateTime, CIMC_dateTime}, {Type::Uint8, CIMC_uint8},  {Type::Sint8, CIMC_sint8},
    {Type::Uint16, CIMC_uint16},    {Type::Sint16, CIMC_sint16}, {Type::Uint32, CIMC_uint32},
    {Type::Sint32, CIMC_sint32},    {Type::Uint64, CIMC_uint64}, {Type::Sint64, CIMC_sint64},
    {Type::Real32, CIMC_real32},    {Type::Real64, CIMC_real64}, {Type::Reference, CIMC_ref},
};
CIMCType codeOf(Type t) {
  for (const auto& m : kTypeMap)
    if (m.t == t) return m.code;
  return CIMC_string;
}
Type typeOf(CIMCType code) {
  if (code == CIMC_instance) return Type::String;  // embedded instances are string-typed
  for (const auto& m : kTypeMap)
    if (m.code == code) return m.t;
  throw CimError(cimmock::CIM_ERR_TYPE_MISMATCH, "type code " + std::to_string(code) + " has no CIM type");
}

// Scalar value of one element type from a caller's union.
Val scalarIn(const CIMCValue& v, CIMCType type) {
  Val out;
  out.type = normalType(type);
  out.null = false;
  switch (type) {
    case CIMC_boolean: out.num.boolean = v.boolean ? 1 : 0; break;
    case CIMC_char16: out.num.char16 = v.char16; break;
    case CIMC_real32: out.num.real32 = v.real32; break;
    case CIMC_real64: out.num.real64 = v.real64; break;
    case CIMC_uint8: out.num.uint8 = v.uint8; break;
    case CIMC_uint16: out.num.uint16 = v.uint16; break;
    case CIMC_uint32: out.num.uint32 = v.uint32; break;
    case CIMC_uint64: out.num.uint64 = v.uint64; break;
    case CIMC_sint8: out.num.sint8 = v.sint8; break;
    case CIMC_sint16: out.num.sint16 = v.sint16; break;
    case CIMC_sint32: out.num.sint32 = v.sint32; break;
    case CIMC_sint64: out.num.sint64 = v.sint64; break;
    case CIMC_string: {
      if (!v.string) return nullVal(out.type);
      Node* s = findAs(Kind::String, v.string);
      if (!s) throw CimError(cimmock::CIM_ERR_INVALID_PARAMETER, "unknown string object");
      out.text = s->text();
      break;
    }
    case CIMC_dateTime: {
      if (!v.dateTime) return nullVal(out.type);
      Node* d = findAs(Kind::DateTime, v.dateTime);
      if (!d) throw CimError(cimmock::CIM_ERR_INVALID_PARAMETER, "unknown datetime object");
      out.text = d->text();
      break;
    }
    case CIMC_ref: {
      if (!v.ref) return nullVal(out.type);
      Node* p = findAs(Kind::Path, v.ref);
      if (!p) throw CimError(cimmock::CIM_ERR_INVALID_PARAMETER, "unknown object path");
      out.ref = p->body.path;  // shared: a later change to the object copies first
      break;
    }
    case CIMC_instance: {
      if (!v.inst) return nullVal(out.type);
      Node* i = findAs(Kind::Instance, v.inst);
      if (!i) throw CimError(cimmock::CIM_ERR_INVALID_PARAMETER, "unknown instance");
      out.inst = i->body.inst;
      break;
    }
    default:
      throw CimError(cimmock::CIM_ERR_TYPE_MISMATCH, "values of type " + std::to_string(type) + " are not supported");
  }
  return out;
}

std::string realText(const Val& v, CIMCType t) {
  char buf[64];
  if (t == CIMC_real32) std::snprintf(buf, sizeof buf, "%.9g", static_cast<double>(v.num.real32));
  else std::snprintf(buf, sizeof buf, "%.17g", v.num.real64);
  return buf;
}

std::string utf8(unsigned cp) {
  std::string s;
  if (cp < 0x80) s += static_cast<char>(cp);
  else if (cp < 0x800) {
    s += static_cast<char>(0xC0 | (cp >> 6));
    s += static_cast<char>(0x80 | (cp & 0x3F));
  } else {
    s += static_cast<char>(0xE0 | (cp >> 12));
    s += static_cast<char>(0x80 | ((cp >> 6) & 0x3F));
    s += static_cast<char>(0x80 | (cp & 0x3F));
  }
  return s;
}
std::uint16_t firstCodePoint(const std::string& s) {
  if (s.empty()) return 0;
  auto b = [&](std::size_t i) { return i < s.size() ? static_cast<unsigned char>(s[i]) & 0x3Fu : 0u; };
  unsigned c = static_cast<unsigned char>(s[0]);
  if (c < 0x80) return static_cast<std::uint16_t>(c);
  if ((c & 0xE0) == 0xC0) return static_cast<std::uint16_t>(((c & 0x1F) << 6) | b(1));
  return static_cast<std::uint16_t>(((c & 0x0F) << 12) | (b(1) << 6) | b(2));
}

// Canonical repository text of a non-reference, non-instance scalar.
std::string scalarText(const Val& v, CIMCType t) {
  switch (t) {
    case CIMC_boolean: return v.num.boolean ? "TRUE" : "FALSE";
    case CIMC_char16: return utf8(v.num.char16);
    case CIMC_real32:
    case CIMC_real64: return realText(v, t);
    case CIMC_uint8: return std::to_string(v.num.uint8);
    case CIMC_uint16: return std::to_string(v.num.uint16);
    case CIMC_uint32: return std::to_string(v.num.uint32);
    case CIMC_uint64: return std::to_string(v.num.uint64);
    case CIMC_sint8: return std::to_string(v.num.sint8);
    case CIMC_sint16: return std::to_string(v.num.sint16);
    case CIMC_sint32: return std::to_string(v.num.sint32);
    case CIMC_sint64: return std::to_string(v.num.sint64);
    default: return v.text;
  }
}

// A scalar from a canonical repository text.
Val scalarFromText(const std::string& s, CIMCType t) {
  Val out;
  out.type = t;
  out.null = false;
  switch (t) {
    case CIMC_boolean: out.num.boolean = s == "TRUE" ? 1 : 0; break;
    case CIMC_char16: out.num.char16 = firstCodePoint(s); break;
    case CIMC_real32: out.num.real32 = std::strtof(s.c_str(), nullptr); break;
    case CIMC_real64: out.num.real64 = std::strtod(s.c_str(), nullptr); break;
    case CIMC_uint8: out.num.uint8 = static_cast<std::uint8_t>(std::strtoull(s.c_str(), nullptr, 10)); break;
    case CIMC_uint16: out.num.uint16 = static_cast<std::uint16_t>(std::strtoull(s.c_str(), nullptr, 10)); break;
    case CIMC_uint32: out.num.uint32 = static_cast<std::uint32_t>(std::strtoull(s.c_str(), nullptr, 10)); break;
    case CIMC_uint64: out.num.uint64 = std::strtoull(s.c_str(), nullptr, 10); break;
    case CIMC_sint8: out.num.sint8 = static_cast<std::int8_t>(std::strtoll(s.c_str(), nullptr, 10)); break;
    case CIMC_sint16: out.num.sint16 = static_cast<std::int16_t>(std::strtoll(s.c_str(), nullptr, 10)); break;
    case CIMC_sint32: out.num.sint32 = static_cast<std::int32_t>(std::strtoll(s.c_str(), nullptr, 10)); break;
    case CIMC_sint64: out.num.sint64 = std::strtoll(s.c_str(), nullptr, 10); break;
    default: out.text = s; break;
  }
  return out;
}

// ---- civil dates (days since 1970-01-01, proleptic Gregorian) ----------
std::int64_t daysFromCivil(std::int64_t y, unsigned m, unsigned d) {
  y -= m <= 2;
  const std::int64_t era = (y >= 0 ? y : y - 399) / 400;
  const unsigned yoe = static_cast<unsigned>(y - era * 400);
  const unsigned doy = (153 * (m + (m > 2 ? -3 : 9)) + 2) / 5 + d - 1;
  const unsigned doe = yoe * 365 + yoe / 4 - yoe / 100 + doy;
  return era * 146097 + static_cast<std::int64_t>(doe) - 719468;
}
void civilFromDays(std::int64_t z, std::int64_t* y, unsigned* m, unsigned* d) {
  z += 719468;
  const std::int64_t era = (z >= 0 ? z : z - 146096) / 146097;
  const unsigned doe = static_cast<unsigned>(z - era * 146097);
  const unsigned yoe = (doe - doe / 1460 + doe / 36524 - doe / 146096) / 365;
  const unsigned doy = doe - (365 * yoe + yoe / 4 - yoe / 100);
  const unsigned mp = (5 * doy + 2) / 153;
  *d = doy - (153 * mp + 2) / 5 + 1;
  *m = mp < 10 ? mp + 3 : mp - 9;
  *y = static_cast<std::int64_t>(yoe) + era * 400 + (*m <= 2);
}
std::uint64_t num(const std::string& s, std::size_t at, std::size_t len) {
  std::uint64_t v = 0;
  for (std::size_t i = at; i < at + len; ++i) v = v * 10 + static_cast<unsigned>(s[i] - '0');
  return v;
}
}  // namespace

CIMCType normalType(CIMCType type) {
  CIMCType base = type & ~kArray;
  if (base == CIMC_chars) base = CIMC_string;
  return static_cast<CIMCType>((type & kArray) | base);
}

Val valueIn(const CIMCValue* value, CIMCType type) {
  if (!value) return nullVal(normalType(type));
  if (type == CIMC_chars) {
    // Character data arrives as the text itself in place of a value union.
    Val out;
    out.type = normalType(type);
    out.null = false;
    out.text = reinterpret_cast<const char*>(value);
    return out;
  }
  if (!(type & kArray)) return scalarIn(*value, type);
  if (!value->array) return nullVal(normalType(type));
  Node* a = findAs(Kind::Array, value->array);
  if (!a) throw CimError(cimmock::CIM_ERR_INVALID_PARAMETER, "unknown array object");
  Val out;
  out.type = static_cast<CIMCType>(kArray | a->elem);
  out.null = false;
  out.items = a->body.items;
  return out;
}

CIMCData nullData(CIMCType type, CIMCValueState state) {
  CIMCData d{};
  d.type = type;
  d.state = state;
  return d;
}

CIMCData dataOut(EnvNode* env, const Val& v) {
  CIMCData d = nullData(v.type, CIMC_nullValue);
  if (v.null) return d;
  d.state = CIMC_goodValue;
  if (v.type & kArray) {
    d.value.array = makeArray(env, static_cast<CIMCType>(v.type & ~kArray), v.items);
    return d;
  }
  switch (v.type) {
    case CIMC_string: d.value.string = makeString(env, v.text); break;
    case CIMC_dateTime: d.value.dateTime = makeDateTime(env, v.text); break;
    case CIMC_ref: d.value.ref = makePath(env, v.ref); break;
    case CIMC_instance: d.value.inst = makeInstance(env, v.inst); break;
    case CIMC_class: d.value.cls = makeClass(env, v.cls); break;
    default: d.value = v.num; break;
  }
  return d;
}

const Val* findNamed(const Named& list, const std::string& name) {
  for (const auto& e : list)
    if (cimmock::iequals(e.first, name)) return &e.second;
  return nullptr;
}

void putNamed(Named& list, const std::string& name, Val v) {
  for (auto& e : list)
    if (cimmock::iequals(e.first, name)) {
      e.second = std::move(v);
      return;
    }
  list.emplace_back(name, std::move(v));
}

// ---- datetimes --------------------------------------------------------------

bool isIntervalText(const std::string& t) { return t.size() == 25 && t[21] == ':'; }

bool validDateTime(const std::string& t) {
  if (t.size() != 25 || t[14] != '.') return false;
  for (std::size_t i = 0; i < 25; ++i) {
    if (i == 14 || i == 21) continue;
    if (t[i] < '0' || t[i] > '9') return false;
  }
  if (t[21] == ':') return t.compare(22, 3, "000") == 0 && num(t, 8, 2) < 24 && num(t, 10, 2) < 60 && num(t, 12, 2) < 60;
  if (t[21] != '+' && t[21] != '-') return false;
  std::uint64_t month = num(t, 4, 2), day = num(t, 6, 2);
  return month >= 1 && month <= 12 && day >= 1 && day <= 31 && num(t, 8, 2) < 24 && num(t, 10, 2) < 60 &&
         num(t, 12, 2) < 61;
}

std::uint64_t dateTimeMicros(const std::string& t) {
  if (!validDateTime(t)) return 0;
  std::uint64_t micros = num(t, 15, 6);
  std::uint64_t hms = num(t, 8, 2) * 3600 + num(t, 10, 2) * 60 + num(t, 12, 2);
  if (isIntervalText(t)) return (num(t, 0, 8) * 86400 + hms) * 1000000 + micros;
  std::int64_t days = daysFromCivil(static_cast<std::int64_t>(num(t, 0, 4)), static_cast<unsigned>(num(t, 4, 2)),
                                    static_cast<unsigned>(num(t, 6, 2)));
  std::int64_t offset = static_cast<std::int64_t>(num(t, 22, 3)) * (t[21] == '-' ? -1 : 1);
  // The text is local time at UTC+offset minutes.
  std::int64_t secs = days * 86400 + static_cast<std::int64_t>(hms) - offset * 60;
  return static_cast<std::uint64_t>(secs) * 1000000 + micros;  // before 1970 wraps, as unsigned must
}

std::string dateTimeFromMicros(std::uint64_t micros, bool interval) {
  char buf[64];
  std::uint64_t secs = micros / 1000000;
  unsigned frac = static_cast<unsigned>(micros % 1000000);
  unsigned hh = static_cast<unsigned>(secs / 3600 % 24), mm = static_cast<unsigned>(secs / 60 % 60),
           ss = static_cast<unsigned>(secs % 60);
  std::uint64_t days = secs / 86400;
  if (interval) {
    std::snprintf(buf, sizeof buf, "%08" PRIu64 "%02u%02u%02u.%06u:000", days % 100000000, hh, mm, ss, frac);
  } else {
    std::int64_t y;
    unsigned m, d;
    civilFromDays(static_cast<std::int64_t>(days), &y, &m, &d);
    std::snprintf(buf, sizeof buf, "%04" PRId64 "%02u%02u%02u%02u%02u.%06u+000", y % 10000, m, d, hh, mm, ss, frac);
  }
  return buf;
}

std::string dateTimeNow() {
  struct timespec ts {};
  clock_gettime(CLOCK_REALTIME, &ts);
  return dateTimeFromMicros(static_cast<std::uint64_t>(ts.tv_sec) * 1000000 + static_cast<std::uint64_t>(ts.tv_nsec) / 1000,
                            false);
}

// ---- paths -------------------------------------------------------------------

namespace {
std::string quoted(const std::string& s) {
  std::string out = "\"";
  for (char c : s) {
    if (c == '"' || c == '\\') out += '\\';
    out += c;
  }
  return out + '"';
}
}  // namespace

std::string pathText(const PathData& p) {
  std::string out;
  if (!p.ns.empty()) out += p.ns + ":";
  out += p.cls;
  for (std::size_t i = 0; i < p.keys.size(); ++i) {
    const Val& v = p.keys[i].second;
    out += i == 0 ? "." : ",";
    out += p.keys[i].first + "=";
    if (v.null) out += "NULL";
    else if (v.type == CIMC_ref) out += quoted(pathText(*v.ref));
    else if (v.type == CIMC_string || v.type == CIMC_dateTime || v.type == CIMC_char16 || (v.type & kArray))
      out += quoted(scalarText(v, v.type));
    else out += scalarText(v, v.type);
  }
  return out;
}

// ---- repository glue -------------------------------------------------------

cimmock::Value toRepo(const Val& v) {
  CIMCType base = static_cast<CIMCType>(v.type & ~kArray);
  bool isArray = (v.type & kArray) != 0;
  cimmock::Value out = cimmock::Value::null(typeOf(base), isArray);
  if (v.null) return out;
  out.isNull = false;
  std::vector<const Val*> items;
  if (isArray) {
    for (const auto& x : v.items) items.push_back(&x);
  } else {
    items.push_back(&v);
  }
  for (const Val* x : items) {
    if (x->null)
      throw CimError(cimmock::CIM_ERR_INVALID_PARAMETER, "the repository holds no NULL array elements");
    if (base == CIMC_ref) out.refs.push_back(toRepoPath(*x->ref));
    else if (base == CIMC_instance) out.embedded.push_back(std::make_shared<cimmock::Instance>(toRepoInstance(*x->inst)));
    else out.texts.push_back(scalarText(*x, base));
  }
  return out;
}

cimmock::ObjectPath toRepoPath(const PathData& p) {
  cimmock::ObjectPath out;
  out.nameSpace = p.ns;
  out.className = p.cls;
  for (const auto& [name, v] : p.keys) {
    cimmock::KeyBinding k;
    k.name = name;
    if (v.type == CIMC_ref && !v.null) {
      k.type = Type::Reference;
      k.ref = std::make_shared<cimmock::ObjectPath>(toRepoPath(*v.ref));
    } else {
      k.type = (v.type & kArray) || v.type == CIMC_instance ? Type::String : typeOf(v.type);
      if (!v.null) k.text = scalarText(v, v.type);
    }
    out.keys.push_back(k);
  }
  return out;
}

cimmock::Instance toRepoInstance(const InstData& d) {
  cimmock::Instance out;
  out.className = d.cls;
  for (const auto& [name, v] : d.props) {
    cimmock::Property p;
    p.name = name;
    p.value = toRepo(v);
    p.type = p.value.type;
    p.isArray = p.value.isArray;
    out.properties.push_back(p);
  }
  return out;
}

PathData fromRepoPath(const cimmock::ObjectPath& p, const std::string& ns) {
  PathData out;
  out.host = "localhost";
  out.ns = p.nameSpace.empty() ? ns : p.nameSpace;
  out.cls = p.className;
  for (const auto& k : p.keys) {
    Val v;
    if (k.type == Type::Reference && k.ref) {
      v.type = CIMC_ref;
      v.null = false;
      v.ref = share(fromRepoPath(*k.ref, out.ns));
    } else if (k.type == Type::Reference) {
      v.type = CIMC_ref;
      v.null = k.text.empty();
      if (!v.null) v.ref = share(fromRepoPath(cimmock::ObjectPath::parse(k.text), out.ns));
    } else {
      v = scalarFromText(k.text, codeOf(k.type));
    }
    out.keys.emplace_back(k.name, std::move(v));
  }
  return out;
}

Val fromRepo(const cimmock::Value& v, Type declared, bool isArray, bool embedded, const std::string& ns,
             bool nullValues) {
  CIMCType base = embedded || !v.embedded.empty() ? CIMCType(CIMC_instance) : codeOf(declared);
  Val out;
  out.type = static_cast<CIMCType>(base | (isArray ? kArray : 0));
  if (v.isNull || nullValues) return out;
  auto item = [&](std::size_t i) {
    if (base == CIMC_ref) {
      Val x;
      x.type = CIMC_ref;
      x.null = false;
      x.ref = share(fromRepoPath(v.refs[i], ns));
      return x;
    }
    if (base == CIMC_instance) {
      Val x;
      x.type = CIMC_instance;
      x.null = false;
      const cimmock::Instance& e = *v.embedded[i];
      x.inst = share(fromRepoInstance(e, repository().pathOf(ns, e), ns, false));
      return x;
    }
    return scalarFromText(v.texts[i], base);
  };
  std::size_t count = base == CIMC_ref ? v.refs.size() : base == CIMC_instance ? v.embedded.size() : v.texts.size();
  if (isArray) {
    out.null = false;
    out.items.reserve(count);
    for (std::size_t i = 0; i < count; ++i) out.items.push_back(item(i));
    return out;
  }
  if (count == 0) return out;
  return item(0);
}

InstData fromRepoInstance(const cimmock::Instance& inst, const cimmock::ObjectPath& path, const std::string& ns,
                          bool nullValues) {
  InstData d;
  d.ns = ns;
  d.cls = inst.className;
  const cimmock::Class* c = repository().findClass(ns, inst.className);
  for (const auto& p : inst.properties) {
    const cimmock::Property* cp = c ? c->findProperty(p.name) : nullptr;
    bool embedded = (cp && !cp->embeddedClass().empty()) || !p.embeddedClass().empty();
    d.props.emplace_back(p.name, fromRepo(p.value, cp ? cp->type : p.type, cp ? cp->isArray : p.isArray, embedded,
                                          ns, nullValues));
  }
  d.path = share(fromRepoPath(path, ns));
  return d;
}

ClassData fromRepoClass(const cimmock::Class& c, const std::string& ns) {
  ClassData d;
  d.name = c.name;
  for (const auto& p : c.properties)
    d.props.emplace_back(p.name, fromRepo(p.value, p.type, p.isArray, !p.embeddedClass().empty(), ns));
  return d;
}

std::shared_ptr<const PathData> instancePath(const InstData& d) {
  if (d.path) return d.path;
  PathData p;
  p.host = "localhost";
  p.ns = d.ns;
  p.cls = d.cls;
  const cimmock::Class* c = repository().findClass(d.ns.empty() ? kDefaultNamespace : d.ns, d.cls);
  if (!c) return share(std::move(p));
  p.cls = c->name;
  for (const auto& name : c->keyNames()) {
    const Val* v = findNamed(d.props, name);
    p.keys.emplace_back(name, v ? *v : nullVal(codeOf(c->findProperty(name)->type)));
  }
  return share(std::move(p));
}

}  // namespace broker
