/*
 * Host data trees: contiguous child arrays, stable records, sibling index.
 */
#include "host/tree_internal.h"

#include <algorithm>
#include <atomic>
#include <cstdlib>
#include <cstring>
#include <deque>
#include <mutex>
#include <unordered_set>

#include "host/alloc.h"
#include "wos_alloc.h"

namespace ocni::host {
namespace detail {

namespace {

/* A parent gets a sibling index once it holds this many children. */
constexpr uint32_t INDEX_THRESHOLD = 8;
constexpr char KEY_SEP = '\x1f';
constexpr char KV_SEP = '\x1e';

/* The host library is linked, not loaded late: its per-thread caches can use the fast TLS model. */
#define OCNI_TLS thread_local __attribute__((tls_model("initial-exec")))

std::atomic<uint64_t> g_next_serial{1};
std::atomic<uint64_t> g_sibling_visits{0};
/* Node records of all live trees, and the most there were since the last reset. */
std::atomic<size_t> g_live_recs{0};
std::atomic<size_t> g_peak_recs{0};
std::atomic<uint64_t> g_free_epoch{1}; /* bumped whenever a tree is freed */
std::atomic<uint64_t> g_rekey_epoch{1}; /* bumped whenever an entry's key changes */
std::mutex g_trees_mu;
std::unordered_set<uint64_t> g_live_trees;

/* Names and namespaces are few (the schema bounds them) and repeated on every node. */
struct Interner {
    std::mutex mu;
    std::deque<std::string> texts; /* elements never move */
    std::unordered_set<std::string_view> set;
};

Interner &interner()
{
    static Interner *g = new Interner; /* outlives every tree, including static ones */
    return *g;
}

char *text_copy(Tree *t, const char *s)
{
    return s != nullptr ? t->arena.copy(s, strlen(s)) : nullptr;
}

/* Frees what a plug-in hung on a node in place of the host's own text. */
void free_text(char *current, char *own)
{
    if (current != nullptr && current != own)
        wos_named_free(current);
}

NodeRec *child_rec(const zidl_yfw_datatree *parent, uint32_t i)
{
    return static_cast<NodeRec *>(parent->children[i].fw);
}

bool grow(NodeRec *p, uint32_t need)
{
    /* Most parents hold one or two children (config, state, a single next hop): start small. */
    uint32_t cap = p->capacity < 2 ? 2 : p->capacity;
    while (cap < need)
        cap *= 2;
    Tree *t = p->tree;
    const size_t bytes = (size_t(cap) + 1) * sizeof(zidl_yfw_datatree);
    /* One spare zeroed slot: scans that stop at a NULL name stop there. */
    zidl_yfw_datatree *arr = t->spare_arrays[__builtin_ctz(cap)];
    if (arr != nullptr) {
        memcpy(&t->spare_arrays[__builtin_ctz(cap)], arr, sizeof arr); /* next on the list */
        memset(arr, 0, bytes);
    } else {
        arr = static_cast<zidl_yfw_datatree *>(t->arena.zalloc(bytes));
        if (arr == nullptr)
            return false;
    }
    zidl_yfw_datatree *pn = p->node;
    zidl_yfw_datatree *old = pn->children;
    if (pn->n_children > 0)
        memcpy(arr, old, sizeof(zidl_yfw_datatree) * pn->n_children);
    pn->children = arr;
    if (old != nullptr && p->capacity >= 2) { /* the outgrown array waits for a parent of its size */
        memcpy(old, &t->spare_arrays[__builtin_ctz(p->capacity)], sizeof old);
        t->spare_arrays[__builtin_ctz(p->capacity)] = old;
    }
    p->capacity = cap;
    for (uint32_t i = 0; i < pn->n_children; ++i)
        child_rec(pn, i)->node = &arr[i];
    g_sibling_visits += pn->n_children;
    return true;
}

/* Links `r` into the chain of its key, keeping the chain in sibling order. */
void chain_insert(ChildIndex &ix, NodeRec *r)
{
    auto ins = ix.by_key.try_emplace(r->key_view(), r);
    if (ins.second) {
        r->prev_same = r;
        r->next_same = nullptr;
        return;
    }
    NodeRec *head = ins.first->second;
    NodeRec *tail = head->prev_same;
    if (r->index > tail->index) { /* the usual case: the newest sibling */
        tail->next_same = r;
        r->prev_same = tail;
        r->next_same = nullptr;
        head->prev_same = r;
        return;
    }
    if (r->index < head->index) {
        r->next_same = head;
        r->prev_same = tail;
        head->prev_same = r;
        ins.first->second = r;
        return;
    }
    NodeRec *at = head;
    while (at->next_same != nullptr && at->next_same->index < r->index) {
        at = at->next_same;
        ++g_sibling_visits;
    }
    r->next_same = at->next_same;
    r->prev_same = at;
    at->next_same->prev_same = r;
    at->next_same = r;
}

void chain_remove(ChildIndex &ix, NodeRec *r, std::string_view key)
{
    auto it = ix.by_key.find(key);
    if (it == ix.by_key.end())
        return;
    NodeRec *head = it->second;
    if (head == r) {
        if (r->next_same == nullptr) {
            ix.by_key.erase(it);
        } else {
            NodeRec *next = r->next_same;
            next->prev_same = r->prev_same;
            it->second = next;
        }
    } else {
        NodeRec *prev = r->prev_same;
        prev->next_same = r->next_same;
        if (r->next_same != nullptr)
            r->next_same->prev_same = prev;
        else
            head->prev_same = prev;
    }
    r->next_same = nullptr;
    r->prev_same = nullptr;
}

/* Entries join their list's first-entry slot once: the oldest stays. */
void first_entry_insert(ChildIndex &ix, NodeRec *r)
{
    if (r->kind != NodeKind::Entry)
        return;
    for (const auto &fe : ix.first_entry)
        if (fe.first == r->own[0])
            return;
    ix.first_entry.emplace_back(r->own[0], r);
}

void index_add(NodeRec *p, NodeRec *r)
{
    if (p->child_index) {
        chain_insert(*p->child_index, r);
        first_entry_insert(*p->child_index, r);
        return;
    }
    if (p->node->n_children < INDEX_THRESHOLD)
        return;
    p->child_index = std::make_unique<ChildIndex>();
    p->child_index->by_key.reserve(p->node->n_children * 2);
    for (uint32_t i = 0; i < p->node->n_children; ++i) {
        NodeRec *c = child_rec(p->node, i);
        chain_insert(*p->child_index, c);
        first_entry_insert(*p->child_index, c);
    }
    g_sibling_visits += p->node->n_children;
}

void free_contents(zidl_yfw_datatree *n)
{
    for (uint32_t i = 0; i < n->n_children; ++i)
        free_contents(&n->children[i]);
    auto *r = static_cast<NodeRec *>(n->fw);
    char *none[4] = {nullptr, nullptr, nullptr, nullptr};
    char **own = r != nullptr ? r->own : none;
    free_text(n->name, own[0]);
    free_text(n->value, own[1]);
    free_text(n->ns, own[2]);
    free_text(n->data_ns, own[3]);
}

/* A key value as the path reader takes it back: quoted when it holds "]" or starts with a quote. */
void append_key_value(std::string &path, const char *v)
{
    if (strchr(v, ']') == nullptr && v[0] != '\'' && v[0] != '"') {
        path += v;
        return;
    }
    const char q = strchr(v, '\'') == nullptr ? '\'' : '"';
    path += q;
    path += v;
    path += q;
}

void append_segment(std::string &path, const zidl_yfw_datatree *n, const NodeRec *r)
{
    path += '/';
    path += n->name != nullptr ? n->name : "";
    if (r == nullptr || r->kind != NodeKind::Entry)
        return;
    for (uint32_t i = 0; i < n->n_children; ++i) {
        const zidl_yfw_datatree &c = n->children[i];
        if (c.name == nullptr)
            break;
        if ((c.flags & YFW_DT_F_LIST) && c.value != nullptr) {
            path += '[';
            path += c.name;
            path += '=';
            append_key_value(path, c.value);
            path += ']';
        }
    }
}

} // namespace

uint64_t sibling_visits()
{
    return g_sibling_visits.load();
}

bool tree_alive(uint64_t serial)
{
    /* The last tree found alive, valid until any tree is freed. */
    static OCNI_TLS uint64_t seen_serial = 0, seen_epoch = 0;
    const uint64_t epoch = g_free_epoch.load(std::memory_order_acquire);
    if (serial != 0 && serial == seen_serial && epoch == seen_epoch)
        return true;
    std::lock_guard<std::mutex> lk(g_trees_mu);
    const bool alive = g_live_trees.count(serial) != 0;
    if (alive) {
        seen_serial = serial;
        seen_epoch = epoch;
    }
    return alive;
}

NodeRec *rec_of(const zidl_yfw_datatree *node)
{
    if (node == nullptr || node->fw == nullptr)
        return nullptr;
    auto *r = static_cast<NodeRec *>(node->fw);
    return r->node == node ? r : nullptr;
}

NodeRec *rec_of(NodeRef ref)
{
    if (ref.rec == nullptr || !tree_alive(ref.tree))
        return nullptr;
    return static_cast<NodeRec *>(ref.rec);
}

NodeRef ref_of(NodeRec *rec)
{
    NodeRef r;
    if (rec != nullptr) {
        r.rec = rec;
        r.tree = rec->tree->serial;
    }
    return r;
}

namespace {

/* name, then "key=value" pairs in key-name order, with separators no name or value holds. */
std::string make_key(std::string_view name, KeyView *keys, size_t n)
{
    std::sort(keys, keys + n);
    size_t len = name.size() + 1;
    for (size_t i = 0; i < n; ++i)
        len += keys[i].first.size() + keys[i].second.size() + 2;
    std::string k;
    k.reserve(len);
    k.append(name);
    k += KEY_SEP;
    for (size_t i = 0; i < n; ++i) {
        k.append(keys[i].first);
        k += KV_SEP;
        k.append(keys[i].second);
        k += KEY_SEP;
    }
    return k;
}

} // namespace

std::string entry_key(std::string_view name, const std::vector<std::pair<std::string, std::string>> &keys)
{
    KeyView small[4];
    std::vector<KeyView> big;
    KeyView *kv = small;
    if (keys.size() > 4) {
        big.resize(keys.size());
        kv = big.data();
    }
    for (size_t i = 0; i < keys.size(); ++i)
        kv[i] = KeyView(keys[i].first, keys[i].second);
    return make_key(name, kv, keys.size());
}

std::string entry_key_of(const NodeRec *entry)
{
    KeyView small[4];
    std::vector<KeyView> big;
    size_t n = 0;
    const zidl_yfw_datatree *node = entry->node;
    for (uint32_t i = 0; i < node->n_children; ++i) {
        const zidl_yfw_datatree &c = node->children[i];
        if (!((c.flags & YFW_DT_F_LIST) && c.value != nullptr && c.name != nullptr))
            continue;
        if (n < 4) {
            small[n++] = KeyView(c.name, c.value);
            continue;
        }
        if (big.empty())
            big.assign(small, small + 4);
        big.emplace_back(c.name, c.value);
        ++n;
    }
    return make_key(node->name != nullptr ? node->name : "", big.empty() ? small : big.data(), n);
}

Arena::~Arena()
{
    while (head_ != nullptr) {
        Chunk *next = head_->next;
        free(head_);
        head_ = next;
    }
}

void *Arena::raw(size_t n, size_t align)
{
    static_assert(sizeof(Chunk) % alignof(zidl_yfw_datatree) == 0, "chunk data stays aligned");
    constexpr size_t MAX_CHUNK = 64 * 1024;
    if (head_ != nullptr) {
        const size_t at = (head_->used + align - 1) & ~(align - 1);
        if (at <= head_->size && head_->size - at >= n) {
            head_->used = at + n;
            return reinterpret_cast<char *>(head_ + 1) + at;
        }
    }
    const bool alone = n + align > next_size_ / 4; /* a large block gets a chunk of its own */
    const size_t size = alone ? n + align : next_size_;
    auto *c = static_cast<Chunk *>(malloc(sizeof(Chunk) + size));
    if (c == nullptr)
        return nullptr;
    c->size = size;
    c->used = n; /* chunk data is aligned for any record (malloc alignment, 24-byte header) */
    if (alone && head_ != nullptr) {
        c->next = head_->next; /* behind the current chunk, whose free room stays in use */
        head_->next = c;
    } else {
        c->next = head_;
        head_ = c;
        if (next_size_ < MAX_CHUNK)
            next_size_ *= 2;
    }
    return c + 1;
}

char *Arena::copy(const char *s, size_t n)
{
    auto *p = static_cast<char *>(raw(n + 1, 1));
    if (p == nullptr)
        return nullptr;
    memcpy(p, s, n);
    p[n] = '\0';
    return p;
}

void *Arena::zalloc(size_t n)
{
    void *p = raw(n, alignof(zidl_yfw_datatree));
    if (p != nullptr)
        memset(p, 0, n);
    return p;
}

NodeRec *Tree::new_rec()
{
    if (block_used == block_size) {
        block_size = block_size == 0 ? 8 : std::min<size_t>(block_size * 2, 4096);
        blocks.emplace_back(new NodeRec[block_size]);
        block_used = 0;
    }
    ++recs;
    const size_t live = ++g_live_recs;
    size_t peak = g_peak_recs.load(std::memory_order_relaxed);
    while (live > peak && !g_peak_recs.compare_exchange_weak(peak, live))
        ;
    return &blocks.back()[block_used++];
}

namespace {

const char *intern_slow(std::string_view s)
{
    Interner &in = interner();
    std::lock_guard<std::mutex> lk(in.mu);
    auto it = in.set.find(s);
    if (it != in.set.end())
        return it->data();
    in.texts.emplace_back(s);
    std::string_view v(in.texts.back());
    in.set.insert(v);
    return v.data();
}

} // namespace

const char *intern(std::string_view s)
{
    /*
     * Callers mostly pass the same few texts again and again, often at the
     * same address (constants, names of other host nodes): a small
     * per-thread cache by address spares the hashing, the lock and the
     * shared table. An address that is itself an interned text needs no
     * comparison; any other is compared, since its buffer may be reused.
     */
    struct Slot {
        const char *src = nullptr;
        const char *text = nullptr;
        size_t len = 0;
    };
    static OCNI_TLS Slot cache[64];
    Slot &slot = cache[(reinterpret_cast<uintptr_t>(s.data()) >> 3) % 64];
    if (slot.src == s.data() && slot.len == s.size() &&
        (slot.src == slot.text || memcmp(slot.text, s.data(), s.size()) == 0))
        return slot.text;
    const char *text = intern_slow(s);
    slot = Slot{s.data(), text, s.size()};
    return text;
}

bool schema_path_is(const NodeRec *r, std::string_view path)
{
    for (; r != nullptr && r->parent != nullptr; r = r->parent) {
        const char *name = r->node->name != nullptr ? r->node->name : "";
        const size_t n = strlen(name);
        if (path.size() < n + 1 || path.compare(path.size() - n, n, name) != 0 || path[path.size() - n - 1] != '/')
            return false;
        path.remove_suffix(n + 1);
    }
    return path.empty();
}

namespace {

/* Sets an entry's key text (kept in the tree's arena). */
bool store_key(NodeRec *r, const std::string &k)
{
    char *p = r->tree->arena.copy(k.data(), k.size());
    if (p == nullptr)
        return false;
    r->key = p;
    r->key_len = uint32_t(k.size());
    return true;
}

} // namespace

NodeRec *add_child(NodeRec *p, const char *name, NodeKind kind, const char *value, const char *ns)
{
    if (name == nullptr)
        return nullptr;
    return add_child(p, std::string_view(name), kind, value, ns);
}

NodeRec *add_child(NodeRec *p, std::string_view name, NodeKind kind, const char *value, const char *ns)
{
    return add_child(p, name, kind, value, ns, nullptr);
}

NodeRec *add_child(NodeRec *p, std::string_view name, NodeKind kind, const char *value, const char *ns,
                   const std::string *key)
{
    if (p == nullptr)
        return nullptr;
    zidl_yfw_datatree *pn = p->node;
    uint32_t n = pn->n_children;
    if (n + 1 > p->capacity && !grow(p, n + 1))
        return nullptr;
    Tree *t = p->tree;
    auto *nm = const_cast<char *>(intern(name));
    char *val = text_copy(t, value);
    auto *nsd = (ns != nullptr && ns[0] != '\0') ? const_cast<char *>(intern(ns)) : nullptr;
    if (value != nullptr && val == nullptr)
        return nullptr;
    NodeRec *r = t->new_rec();
    r->tree = t;
    r->kind = kind;
    r->own[0] = nm;
    if (kind == NodeKind::Entry) {
        if (!store_key(r, key != nullptr ? *key : entry_key(name, {})))
            return nullptr;
    } else {
        r->key = nm;
        r->key_len = uint32_t(name.size());
    }
    zidl_yfw_datatree *c = &pn->children[n];
    memset(c, 0, sizeof *c);
    c->name = nm;
    c->value = val;
    c->ns = nsd;
    c->fw = r;
    c->flags = uint8_t((kind == NodeKind::Entry ? YFW_DT_F_LIST : 0) | (val != nullptr ? YFW_DT_F_VALUE : 0));
    r->parent = p;
    r->node = c;
    r->index = n;
    r->own[1] = val;
    r->own[2] = nsd;
    pn->n_children = n + 1;
    pn->flags |= YFW_DT_F_CHILDREN;
    index_add(p, r);
    return r;
}

NodeRec *find_child(const NodeRec *p, std::string_view key)
{
    if (p == nullptr)
        return nullptr;
    if (p->child_index) {
        auto it = p->child_index->by_key.find(key);
        return it == p->child_index->by_key.end() ? nullptr : it->second;
    }
    for (uint32_t i = 0; i < p->node->n_children; ++i) {
        NodeRec *c = child_rec(p->node, i);
        ++g_sibling_visits;
        if (c->key_view() == key)
            return c;
    }
    return nullptr;
}

NodeRec *find_first_entry(const NodeRec *p, std::string_view name)
{
    if (p == nullptr)
        return nullptr;
    if (p->child_index) {
        for (const auto &fe : p->child_index->first_entry)
            if (name == fe.first)
                return fe.second;
        return nullptr;
    }
    for (uint32_t i = 0; i < p->node->n_children; ++i) {
        NodeRec *c = child_rec(p->node, i);
        ++g_sibling_visits;
        if (c->kind == NodeKind::Entry && c->node->name != nullptr && name == c->node->name)
            return c;
    }
    return nullptr;
}

NodeRec *find_named(const NodeRec *p, std::string_view name)
{
    NodeRec *r = find_child(p, name);
    return r != nullptr ? r : find_first_entry(p, name);
}

uint64_t rekey_epoch()
{
    return g_rekey_epoch.load(std::memory_order_relaxed);
}

void rekey(NodeRec *entry)
{
    if (entry == nullptr || entry->kind != NodeKind::Entry)
        return;
    std::string k = entry_key_of(entry);
    if (std::string_view(k) == entry->key_view())
        return;
    g_rekey_epoch.fetch_add(1, std::memory_order_relaxed);
    NodeRec *p = entry->parent;
    const std::string_view old = entry->key_view();
    if (p != nullptr && p->child_index)
        chain_remove(*p->child_index, entry, old);
    if (!store_key(entry, k))
        throw std::bad_alloc();
    if (p != nullptr && p->child_index)
        chain_insert(*p->child_index, entry);
}

bool set_value(NodeRec *r, const char *value)
{
    zidl_yfw_datatree *n = r->node;
    if (value != nullptr && n->value != nullptr && strcmp(value, n->value) == 0)
        return true;
    char *v = nullptr;
    if (value != nullptr) {
        size_t len = strlen(value);
        char *own = r->own[1];
        if (own != nullptr && n->value == own && strlen(own) >= len) {
            v = own; /* the host's own copy is long enough: reuse it */
            memmove(v, value, len + 1);
        } else {
            v = r->tree->arena.copy(value, len);
            if (v == nullptr)
                return false;
        }
    }
    free_text(n->value, r->own[1]);
    n->value = v;
    r->own[1] = v;
    if (v != nullptr)
        n->flags |= YFW_DT_F_VALUE;
    else
        n->flags &= uint8_t(~YFW_DT_F_VALUE);
    if ((n->flags & YFW_DT_F_LIST) && r->kind == NodeKind::Leaf && r->parent != nullptr)
        rekey(r->parent);
    return true;
}

bool set_ns(NodeRec *r, const char *ns)
{
    zidl_yfw_datatree *n = r->node;
    if (ns != nullptr && n->ns != nullptr && strcmp(ns, n->ns) == 0)
        return true;
    auto *v = (ns != nullptr && ns[0] != '\0') ? const_cast<char *>(intern(ns)) : nullptr;
    free_text(n->ns, r->own[2]);
    n->ns = v;
    r->own[2] = v;
    return true;
}

bool set_data_ns(NodeRec *r, const char *data_ns)
{
    zidl_yfw_datatree *n = r->node;
    auto *v = data_ns != nullptr ? const_cast<char *>(intern(data_ns)) : nullptr;
    free_text(n->data_ns, r->own[3]);
    n->data_ns = v;
    r->own[3] = v;
    if (v != nullptr)
        n->flags2 |= YFW_DT_F2_DATA_NS;
    else
        n->flags2 &= uint8_t(~YFW_DT_F2_DATA_NS);
    return true;
}

void mark_key(NodeRec *leaf)
{
    leaf->node->flags |= YFW_DT_F_LIST;
    if (leaf->parent != nullptr)
        rekey(leaf->parent);
}

std::string schema_path(const NodeRec *r)
{
    std::vector<const NodeRec *> chain;
    for (; r != nullptr && r->parent != nullptr; r = r->parent)
        chain.push_back(r);
    std::string path;
    for (auto it = chain.rbegin(); it != chain.rend(); ++it) {
        path += '/';
        path += (*it)->node->name != nullptr ? (*it)->node->name : "";
    }
    return path;
}

std::string instance_path(const NodeRec *r)
{
    std::vector<const NodeRec *> chain;
    for (; r != nullptr && r->parent != nullptr; r = r->parent)
        chain.push_back(r);
    std::string path;
    for (auto it = chain.rbegin(); it != chain.rend(); ++it)
        append_segment(path, (*it)->node, *it);
    return path;
}

zidl_yfw_datatree *new_tree()
{
    if (alloc_refused("host tree"))
        return nullptr;
    auto *root = static_cast<zidl_yfw_datatree *>(calloc(1, sizeof(zidl_yfw_datatree)));
    if (root == nullptr)
        return nullptr;
    auto *t = new Tree;
    t->serial = g_next_serial++;
    t->root = root;
    NodeRec *r = t->new_rec();
    auto *nm = const_cast<char *>(intern("/"));
    r->tree = t;
    r->node = root;
    r->own[0] = nm;
    r->key = nm;
    r->key_len = 1;
    root->name = nm;
    root->fw = r;
    {
        std::lock_guard<std::mutex> lk(g_trees_mu);
        g_live_trees.insert(t->serial);
    }
    return root;
}

} // namespace detail

using namespace detail;

zidl_yfw_datatree *tree_new()
{
    try {
        return new_tree();
    } catch (...) {
        return nullptr;
    }
}

void tree_free(zidl_yfw_datatree *root)
{
    NodeRec *r = rec_of(root);
    if (r == nullptr || r->parent != nullptr)
        return;
    Tree *t = r->tree;
    {
        std::lock_guard<std::mutex> lk(g_trees_mu);
        g_live_trees.erase(t->serial);
        g_free_epoch.fetch_add(1, std::memory_order_release);
    }
    free_contents(root);
    free(root);
    g_live_recs -= t->recs;
    delete t;
}

NodeRef node_ref(const zidl_yfw_datatree *node)
{
    return ref_of(rec_of(node));
}

zidl_yfw_datatree *node_get(NodeRef ref)
{
    NodeRec *r = rec_of(ref);
    return r != nullptr ? r->node : nullptr;
}

zidl_yfw_datatree *node_parent(const zidl_yfw_datatree *node)
{
    NodeRec *r = rec_of(node);
    return r != nullptr && r->parent != nullptr ? r->parent->node : nullptr;
}

zidl_yfw_datatree *node_add_child(zidl_yfw_datatree *parent, const char *name, NodeKind kind,
                                  const char *value, const char *ns)
{
    try {
        NodeRec *p = rec_of(parent);
        NodeRec *r = add_child(p, name, kind, value, ns);
        return r != nullptr ? r->node : nullptr;
    } catch (...) {
        return nullptr;
    }
}

zidl_yfw_datatree *node_add_entry(zidl_yfw_datatree *parent, const char *name,
                                  const std::vector<std::pair<std::string, std::string>> &keys,
                                  const char *ns, bool *existed)
{
    if (existed != nullptr)
        *existed = false;
    NodeRec *p = rec_of(parent);
    if (p == nullptr || name == nullptr)
        return nullptr;
    try {
        const std::string key = entry_key(name, keys);
        if (NodeRec *e = find_child(p, key); e != nullptr) {
            if (existed != nullptr)
                *existed = true;
            return e->node;
        }
        /* Made with its final key: the key leaves below are flagged, not re-indexed one by one. */
        NodeRec *e = add_child(p, name, NodeKind::Entry, nullptr, ns, &key);
        if (e == nullptr)
            return nullptr;
        for (const auto &kv : keys) {
            NodeRec *k = add_child(e, kv.first.c_str(), NodeKind::Leaf, kv.second.c_str(), ns);
            if (k == nullptr)
                return nullptr;
            k->node->flags |= YFW_DT_F_LIST;
        }
        return e->node;
    } catch (...) {
        return nullptr;
    }
}

bool node_set_value(zidl_yfw_datatree *node, const char *value)
{
    NodeRec *r = rec_of(node);
    try {
        return r != nullptr && set_value(r, value);
    } catch (...) {
        return false;
    }
}

bool node_set_ns(zidl_yfw_datatree *node, const char *ns)
{
    NodeRec *r = rec_of(node);
    return r != nullptr && set_ns(r, ns);
}

bool node_set_data_ns(zidl_yfw_datatree *node, const char *data_ns)
{
    NodeRec *r = rec_of(node);
    return r != nullptr && set_data_ns(r, data_ns);
}

void node_set_op(zidl_yfw_datatree *node, uint32_t op)
{
    if (node == nullptr)
        return;
    node->op = op;
    node->flags |= YFW_DT_F_OP;
}

void node_mark_key(zidl_yfw_datatree *leaf)
{
    NodeRec *r = rec_of(leaf);
    if (r == nullptr)
        return;
    try {
        mark_key(r);
    } catch (...) {
    }
}

zidl_yfw_datatree *node_child(const zidl_yfw_datatree *parent, const char *name)
{
    if (parent == nullptr || name == nullptr)
        return nullptr;
    try {
        if (NodeRec *p = rec_of(parent); p != nullptr) {
            NodeRec *c = find_named(p, name);
            return c != nullptr ? c->node : nullptr;
        }
    } catch (...) {
        return nullptr;
    }
    for (uint32_t i = 0; i < parent->n_children; ++i) {
        const zidl_yfw_datatree &c = parent->children[i];
        ++detail::g_sibling_visits;
        if (c.name == nullptr)
            break;
        if (strcmp(c.name, name) == 0)
            return &parent->children[i];
    }
    return nullptr;
}

zidl_yfw_datatree *node_find_entry(const zidl_yfw_datatree *parent, const char *name,
                                   const std::vector<std::pair<std::string, std::string>> &keys)
{
    NodeRec *p = rec_of(parent);
    if (p == nullptr || name == nullptr)
        return nullptr;
    try {
        NodeRec *e = find_child(p, entry_key(name, keys));
        return e != nullptr ? e->node : nullptr;
    } catch (...) {
        return nullptr;
    }
}

std::string node_instance_path(const zidl_yfw_datatree *node)
{
    return instance_path(rec_of(node));
}

std::string node_schema_path(const zidl_yfw_datatree *node)
{
    return schema_path(rec_of(node));
}

namespace detail {

bool parse_path_views(std::string_view path, std::vector<StepView> &steps, std::vector<KeyView> &keys,
                      const char **err)
{
    steps.clear();
    keys.clear();
    auto fail = [&](const char *why) { /* callers discard the steps of a malformed path */
        if (err != nullptr)
            *err = why;
        return false;
    };
    const char *p = path.data();
    const char *const end = p + path.size();
    auto at = [&](const char *q) { return q < end ? *q : '\0'; };
    while (p < end) {
        if (*p == '/') {
            ++p;
            continue;
        }
        StepView st;
        const char *b = p;
        while (p < end && *p != '/' && *p != '[')
            ++p;
        st.name = std::string_view(b, size_t(p - b));
        if (st.name.empty())
            return fail("key without a node name");
        st.first_key = keys.size();
        while (at(p) == '[') {
            ++p;
            const char *kb = p;
            while (p < end && *p != '=' && *p != ']')
                ++p;
            std::string_view k(kb, size_t(p - kb));
            if (at(p) != '=' || k.empty())
                return fail("key without '='");
            ++p;
            std::string_view v;
            if (at(p) == '\'' || at(p) == '"') {
                char q = *p++;
                const char *vb = p;
                while (p < end && *p != q)
                    ++p;
                if (at(p) != q)
                    return fail("unterminated quoted key value");
                v = std::string_view(vb, size_t(p - vb));
                ++p;
                if (at(p) != ']')
                    return fail("text after a quoted key value");
            } else {
                const char *vb = p;
                while (p < end && *p != ']')
                    ++p;
                v = std::string_view(vb, size_t(p - vb));
            }
            if (at(p) != ']')
                return fail("unterminated '['");
            ++p;
            keys.emplace_back(k, v);
        }
        st.n_keys = keys.size() - st.first_key;
        if (p < end && *p != '/')
            return fail("text after ']'");
        steps.push_back(st);
    }
    return true;
}

std::string entry_key(std::string_view name, const KeyView *keys, size_t n)
{
    KeyView small[4];
    std::vector<KeyView> big;
    KeyView *kv = small;
    if (n > 4) {
        big.resize(n);
        kv = big.data();
    }
    std::copy(keys, keys + n, kv);
    return make_key(name, kv, n);
}

} // namespace detail

bool parse_instance_path(const char *path, std::vector<PathStep> &steps, std::string *err)
{
    steps.clear();
    if (path == nullptr) {
        if (err != nullptr)
            *err = "no path";
        return false;
    }
    std::vector<StepView> views;
    std::vector<KeyView> keys;
    const char *why = nullptr;
    if (!parse_path_views(path, views, keys, &why)) {
        if (err != nullptr)
            *err = why;
        return false;
    }
    for (const StepView &v : views) {
        PathStep st;
        st.name.assign(v.name);
        for (size_t i = 0; i < v.n_keys; ++i)
            st.keys.emplace_back(std::string(keys[v.first_key + i].first), std::string(keys[v.first_key + i].second));
        steps.push_back(std::move(st));
    }
    return true;
}

zidl_yfw_datatree *tree_find(const zidl_yfw_datatree *root, const char *path)
{
    try {
        std::vector<PathStep> steps;
        if (!parse_instance_path(path, steps))
            return nullptr;
        NodeRec *cur = rec_of(root);
        for (const PathStep &st : steps) {
            if (cur == nullptr)
                return nullptr;
            cur = st.keys.empty() ? find_named(cur, st.name) : find_child(cur, entry_key(st.name, st.keys));
        }
        return cur != nullptr ? cur->node : nullptr;
    } catch (...) {
        return nullptr;
    }
}

const char *op_name(uint32_t op)
{
    switch (op) {
    case YFW_DT_OP_NONE: return "none";
    case YFW_DT_OP_MERGE: return "merge";
    case YFW_DT_OP_CREATE: return "create";
    case YFW_DT_OP_DELETE: return "delete";
    case YFW_DT_OP_REMOVE: return "remove";
    case YFW_DT_OP_REPLACE: return "replace";
    default: return "op?";
    }
}

namespace {

/* Emits the lines below `n`; returns whether any was emitted. */
bool collect_lines(const zidl_yfw_datatree *n, const std::string &prefix, const DumpOptions &opt,
                   std::vector<std::string> &out)
{
    bool any = false;
    const NodeRec *pr = rec_of(n);
    for (uint32_t i = 0; i < n->n_children; ++i) {
        const zidl_yfw_datatree *c = &n->children[i];
        if (c->name == nullptr)
            break;
        const NodeRec *r = rec_of(c);
        bool key_leaf = (c->flags & YFW_DT_F_LIST) && c->value != nullptr && pr != nullptr &&
                        pr->kind == NodeKind::Entry;
        std::string path = prefix;
        append_segment(path, c, r);
        bool has_op = (c->flags & YFW_DT_F_OP) != 0;
        bool below = collect_lines(c, path, opt, out);
        /* Key leaves show in their entry's brackets; an entry with nothing else shows alone. */
        bool show = key_leaf ? (opt.key_leaves || has_op) : (c->value != nullptr || has_op || !below);
        if (show) {
            std::string line = path;
            if (c->value != nullptr) {
                line += " = ";
                line += c->value;
            }
            if (has_op) {
                line += " (";
                line += op_name(c->op);
                line += ')';
            }
            if (opt.ns) {
                line += " {";
                line += c->ns != nullptr ? c->ns : "";
                line += '}';
                if (c->data_ns != nullptr) {
                    line += " {";
                    line += c->data_ns;
                    line += '}';
                }
            }
            out.push_back(std::move(line));
        }
        any = any || show || below;
    }
    return any;
}

} // namespace

std::vector<std::string> tree_lines(const zidl_yfw_datatree *root, const DumpOptions &opt)
{
    std::vector<std::string> out;
    if (root == nullptr)
        return out;
    collect_lines(root, "", opt, out);
    std::sort(out.begin(), out.end());
    return out;
}

uint64_t tree_sibling_visits()
{
    return detail::sibling_visits();
}

size_t tree_nodes_live() { return detail::g_live_recs.load(); }
size_t tree_nodes_peak() { return detail::g_peak_recs.load(); }
void tree_nodes_peak_reset() { detail::g_peak_recs.store(detail::g_live_recs.load()); }

size_t tree_size(const zidl_yfw_datatree *root)
{
    if (root == nullptr)
        return 0;
    size_t n = 1;
    for (uint32_t i = 0; i < root->n_children; ++i) {
        if (root->children[i].name == nullptr)
            break;
        n += tree_size(&root->children[i]);
    }
    return n;
}

} // namespace ocni::host
