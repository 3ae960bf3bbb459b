// The node store: each environment keeps its nodes in a few large chunks of
// fixed-size slots, and one process-wide directory of chunk address ranges
// turns a caller's pointer into its slot. Releasing an environment frees its
// chunks wholesale; no per-object bookkeeping is erased one by one.
#include <algorithm>
#include <cstdlib>
#include <new>

#include "broker.h"

namespace broker {

static_assert(sizeof(Node) == 64, "a node is one cache line");

struct EnvNode::Chunk {
  explicit Chunk(std::size_t capacity)
      : slots(static_cast<Node*>(::operator new(capacity * sizeof(Node)))), cap(capacity) {}
  ~Chunk();
  Chunk(const Chunk&) = delete;
  Chunk& operator=(const Chunk&) = delete;
  Node* slots;
  std::size_t cap;
  std::size_t used = 0;  // slots [0, used) hold constructed nodes
};

namespace {

// The first chunk is small (most environments hold a handful of objects);
// each next one doubles, up to 1 MiB.
constexpr std::size_t kFirstChunk = 64;
constexpr std::size_t kLargestChunk = 16384;

struct Span {
  std::uintptr_t begin, end;
  EnvNode::Chunk* chunk;
  EnvNode* env;
};
// Sorted by begin; chunks never overlap.
std::vector<Span>& directory() {
  static std::vector<Span> d;
  return d;
}
std::vector<EnvNode*>& envs() {
  static std::vector<EnvNode*> e;
  return e;
}

void dropBody(Node* n) {
  switch (n->kind) {
    case Kind::String:
    case Kind::DateTime:
      if (n->longText) std::free(n->body.heap);
      n->longText = false;
      break;
    case Kind::Path: std::destroy_at(&n->body.path); break;
    case Kind::Instance: std::destroy_at(&n->body.inst); break;
    case Kind::Class: std::destroy_at(&n->body.cls); break;
    case Kind::Array: std::destroy_at(&n->body.items); break;
    case Kind::Args: std::destroy_at(&n->body.args); break;
    case Kind::Enum: std::destroy_at(&n->body.en); break;
    case Kind::Client: break;
  }
}

void addChunk(EnvNode* env) {
  std::size_t cap = env->chunks.empty() ? kFirstChunk : std::min(env->chunks.back()->cap * 2, kLargestChunk);
  env->chunks.reserve(env->chunks.size() + 1);
  auto chunk = std::make_unique<EnvNode::Chunk>(cap);
  auto begin = reinterpret_cast<std::uintptr_t>(chunk->slots);
  Span span{begin, begin + cap * sizeof(Node), chunk.get(), env};
  auto& dir = directory();
  dir.insert(std::upper_bound(dir.begin(), dir.end(), begin, [](std::uintptr_t a, const Span& s) { return a < s.begin; }),
             span);
  env->chunks.push_back(std::move(chunk));  // capacity reserved: cannot throw
}

template <class T>
T& writable(std::shared_ptr<const T>& p) {
  if (p.use_count() != 1) p = share(T(*p));
  return const_cast<T&>(*p);  // every shared object was made writable by share()
}

}  // namespace

EnvNode::Chunk::~Chunk() {
  for (std::size_t i = 0; i < used; ++i) {
    if (!slots[i].dead) dropBody(&slots[i]);
    slots[i].~Node();
  }
  ::operator delete(slots);
}

EnvNode::EnvNode() = default;
EnvNode::~EnvNode() = default;

PathData& Node::pathForWrite() { return writable(body.path); }
InstData& Node::instForWrite() { return writable(body.inst); }

BrokerLock& brokerLock() {
  static BrokerLock lock;
  return lock;
}

Node* findNode(const void* pub) {
  if (!pub) return nullptr;
  auto a = reinterpret_cast<std::uintptr_t>(pub);
  const auto& dir = directory();
  auto it = std::upper_bound(dir.begin(), dir.end(), a, [](std::uintptr_t x, const Span& s) { return x < s.begin; });
  if (it == dir.begin()) return nullptr;
  --it;
  if (a >= it->end) return nullptr;
  std::size_t index = (a - it->begin) / sizeof(Node);
  if (index >= it->chunk->used) return nullptr;  // a slot not handed out yet
  Node* n = &it->chunk->slots[index];
  // Only the exact address of a slot's pub is an object; anything else that
  // falls inside a chunk is not one.
  if (static_cast<const void*>(&n->pub) != pub || n->dead) return nullptr;
  return n;
}

EnvNode* findEnv(const void* pub) {
  if (!pub) return nullptr;
  for (EnvNode* e : envs())
    if (static_cast<const void*>(&e->pub) == pub) return e;
  return nullptr;
}

Node* newNode(EnvNode* env, Kind kind) {
  if (env->chunks.empty() || env->chunks.back()->used == env->chunks.back()->cap) addChunk(env);
  EnvNode::Chunk& c = *env->chunks.back();
  Node* n = new (&c.slots[c.used]) Node();
  ++c.used;
  n->kind = kind;
  n->env = env;
  return n;
}

void releaseNode(Node* n) {
  if (n->dead) return;
  dropBody(n);
  n->dead = true;
  if (n->kind == Kind::String) n->pub.string.hdl = nullptr;
}

void registerEnv(EnvNode* env) { envs().push_back(env); }

void destroyEnv(EnvNode* env) {
  auto& dir = directory();
  dir.erase(std::remove_if(dir.begin(), dir.end(), [env](const Span& s) { return s.env == env; }), dir.end());
  auto& all = envs();
  all.erase(std::remove(all.begin(), all.end(), env), all.end());
  delete env;
}

}  // namespace broker
