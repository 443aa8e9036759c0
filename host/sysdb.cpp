/*
 * Configuration store client (sysdb.h) over the store engine in use, and
 * packed tuples.
 *
 * Lookups read the thread's current transaction (TxnScope).
 * Lookup paths are relative to the connection's bind root. Components are
 * literal text (VRF names, prefixes and next-hop keys come from user data
 * and are never read as patterns); only the wildcard components the static
 * layout defines (the route component and next-hop keys, written as ".*"
 * parts joined by commas) match any stored component of that shape. The
 * literal components before the first wildcard bound an ordered range
 * scan, so a lookup under one route never visits the rest of the store.
 */
#include <atomic>
#include <cstdarg>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <mutex>
#include <regex.h>
#include <set>
#include <unordered_map>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "host/store.h"
#include "host/store_layout.h"
#include "sysdb.h"

struct sysdb_conn {
    std::string root; /* always ends in "/" */
    uint32_t mode = 0;
};

struct sysdb_datalist {
    std::vector<std::pair<std::string, std::string>> items; /* full path, packed tuple */
    size_t pos = 0;
};

namespace ocni::host {
namespace {

struct StoreState {
    std::mutex mu;
    std::shared_ptr<StoreEngine> engine;
    cerrno bind_fail_rc = 0;
    unsigned bind_fail_count = 0;
    size_t binds = 0;
    /* Connections live for the whole process (sysdb.h has no unbind). */
    std::unordered_map<const sysdb_conn *, std::unique_ptr<sysdb_conn>> conns;
};

StoreState &state()
{
    static StoreState *s = new StoreState;
    return *s;
}

/* A compiled, anchored POSIX extended expression. */
class Regex {
public:
    explicit Regex(const std::string &text)
    {
        std::string anchored = "^(" + text + ")$";
        ok_ = regcomp(&re_, anchored.c_str(), REG_EXTENDED | REG_NOSUB) == 0;
    }
    Regex(const Regex &) = delete;
    Regex &operator=(const Regex &) = delete;
    ~Regex()
    {
        if (ok_)
            regfree(&re_);
    }
    bool ok() const { return ok_; }
    bool matches(std::string_view s) const
    {
        thread_local std::string text; /* regexec wants a terminated string */
        text.assign(s);
        return regexec(&re_, text.c_str(), 0, nullptr, 0) == 0;
    }

private:
    regex_t re_;
    bool ok_ = false;
};

/*
 * Lookups repeat the same few patterns for every route; compiling one
 * costs far more than matching it, so compiled patterns are kept (a
 * bounded number of them, dropped all at once when full).
 */
std::shared_ptr<const Regex> compiled(const std::string &text)
{
    static std::mutex mu;
    static auto *cache = new std::unordered_map<std::string, std::shared_ptr<const Regex>>;
    std::lock_guard<std::mutex> lk(mu);
    auto it = cache->find(text);
    if (it != cache->end())
        return it->second;
    auto re = std::make_shared<const Regex>(text);
    if (!re->ok())
        return nullptr;
    if (cache->size() >= 256)
        cache->clear();
    cache->emplace(text, re);
    return re;
}

/*
 * Where the static layout puts wildcards, below the static bind root:
 * <ord>/<vrf>/address/<family>/unicast/ord_c/default/route/<hex>/<len>/<route>/nexthop/<key>.
 */
constexpr size_t ROUTE_COMPONENT_AT = 10;
constexpr size_t NEXT_HOP_KEY_AT = 12;

/* Commas a wildcard component stands for when it is ".*" parts joined by commas; -1 otherwise. */
int wildcard_commas(std::string_view text)
{
    int commas = 0;
    for (size_t i = 0;; i += 3) {
        if (text.compare(i, 2, ".*") != 0)
            return -1;
        if (i + 2 == text.size())
            return commas;
        if (text[i + 2] != ',')
            return -1;
        ++commas;
    }
}

/*
 * One component of a lookup path: literal text, or a wildcard where the
 * layout has one. A wildcard of n ".*" parts matches, as the expression
 * would, any stored component holding at least n - 1 commas.
 */
class Component {
public:
    Component(std::string text, bool layout_slot) : text_(std::move(text))
    {
        if (layout_slot)
            commas_ = wildcard_commas(text_);
    }

    bool is_pattern() const { return commas_ >= 0; }
    const std::string &text() const { return text_; }

    bool matches(std::string_view s) const
    {
        if (commas_ < 0)
            return s == text_;
        int seen = 0;
        for (char c : s)
            seen += c == ',';
        return seen >= commas_;
    }

private:
    std::string text_;
    int commas_ = -1;
};

/* The `pattern` argument of a listing: a caller's expression, never user data. */
class ListingPattern {
public:
    explicit ListingPattern(const char *text)
    {
        if (text != nullptr && text[0] != '\0')
            re_ = compiled(text);
        ok_ = text == nullptr || text[0] == '\0' || re_ != nullptr;
    }
    bool ok() const { return ok_; }
    bool matches(std::string_view s) const { return re_ == nullptr || re_->matches(s); }

private:
    std::shared_ptr<const Regex> re_;
    bool ok_ = true;
};

/* Components of `s` from `from` on, as views into it; empty ones (doubled or trailing "/") are skipped. */
void split(std::string_view s, size_t from, std::vector<std::string_view> &out)
{
    out.clear();
    size_t at = from;
    while (at < s.size()) {
        size_t slash = s.find('/', at);
        if (slash == std::string_view::npos)
            slash = s.size();
        if (slash > at)
            out.push_back(s.substr(at, slash - at));
        at = slash + 1;
    }
}

/* Components of a stored key below the bind root (reused per thread). */
std::vector<std::string_view> &key_parts(const std::string &key, size_t from)
{
    thread_local std::vector<std::string_view> parts;
    split(key, from, parts);
    return parts;
}

/* A parsed lookup: its components and the literal key prefix that bounds the scan. */
struct Lookup {
    std::vector<Component> comps;
    std::string scan_prefix;
};

cerrno prepare(const sysdb_conn *conn, const char *path, Lookup &lk)
{
    std::vector<std::string_view> parts;
    split(path, 0, parts);
    const bool static_root = conn->root == STATIC_ROOT;
    lk.comps.reserve(parts.size());
    for (size_t i = 0; i < parts.size(); ++i)
        lk.comps.emplace_back(std::string(parts[i]),
                              static_root && (i == ROUTE_COMPONENT_AT || i == NEXT_HOP_KEY_AT));
    lk.scan_prefix = conn->root;
    for (auto &c : lk.comps) {
        if (c.is_pattern())
            break;
        lk.scan_prefix += c.text();
        lk.scan_prefix += '/';
    }
    return YFW_RC_OK;
}

/*
 * Visits the stored keys at or below the nodes the lookup matches, with
 * their components below the bind root; the engine's result.
 */
/* Lookups outside a request read the committed store only when tests ask for it. */
std::atomic<bool> scope_each_lookup{false};
thread_local Txn *current_txn = nullptr;

/*
 * Visits the stored keys at or below the nodes the lookup matches, with
 * their components below the bind root, in the thread's current
 * transaction; the engine's result, SYSDB_RC_FAILED outside any scope.
 */
template <class Fn>
cerrno visit(const sysdb_conn *conn, const Lookup &lk, Fn &&fn)
{
    std::unique_ptr<Txn> own;
    Txn *txn = current_txn;
    if (txn == nullptr) {
        if (!scope_each_lookup.load())
            return SYSDB_RC_FAILED;
        own = store_engine()->begin_read();
        if (!own)
            return SYSDB_RC_FAILED;
        txn = own.get();
    }
    const size_t n = lk.comps.size();
    return txn->scan(lk.scan_prefix, prefix_end(lk.scan_prefix),
                     [&](const std::string &key, const std::string &value) {
                         std::vector<std::string_view> &kc = key_parts(key, conn->root.size());
                         if (kc.size() < n)
                             return true;
                         for (size_t i = 0; i < n; ++i)
                             if (!lk.comps[i].matches(kc[i]))
                                 return true;
                         fn(key, value, kc, !key.empty() && key.back() == '/');
                         return true;
                     });
}

bool valid_conn(const sysdb_conn *conn)
{
    StoreState &s = state();
    std::lock_guard<std::mutex> lk(s.mu);
    return s.conns.count(conn) != 0;
}

} // namespace

std::string prefix_end(const std::string &prefix)
{
    std::string end = prefix;
    while (!end.empty()) {
        unsigned char last = static_cast<unsigned char>(end.back());
        if (last != 0xff) {
            end.back() = static_cast<char>(last + 1);
            return end;
        }
        end.pop_back();
    }
    return end;
}

TxnScope::TxnScope(Txn *txn) : prev_(current_txn) { current_txn = txn; }
TxnScope::~TxnScope() { current_txn = prev_; }
Txn *TxnScope::current() { return current_txn; }

void store_scope_each_lookup(bool on) { scope_each_lookup.store(on); }

namespace {
template <class F> cerrno in_txn(StoreEngine &e, bool write, F f)
{
    std::unique_ptr<Txn> t = write ? e.begin_write() : e.begin_read();
    if (!t)
        return SYSDB_RC_FAILED;
    cerrno rc = f(*t);
    if (write && rc != YFW_RC_OK)
        return rc;
    if (t->commit() != YFW_RC_OK)
        return SYSDB_RC_FAILED;
    return rc;
}
} // namespace

cerrno StoreEngine::get(const std::string &key, std::string &value)
{
    return in_txn(*this, false, [&](Txn &t) { return t.get(key, value); });
}
cerrno StoreEngine::put(const std::string &key, const std::string &value)
{
    return in_txn(*this, true, [&](Txn &t) { return t.put(key, value); });
}
cerrno StoreEngine::del(const std::string &key)
{
    return in_txn(*this, true, [&](Txn &t) { return t.del(key); });
}
cerrno StoreEngine::scan(const std::string &lo, const std::string &hi, const Visitor &fn)
{
    return in_txn(*this, false, [&](Txn &t) { return t.scan(lo, hi, fn); });
}

void store_use_engine(std::shared_ptr<StoreEngine> engine)
{
    StoreState &s = state();
    std::lock_guard<std::mutex> lk(s.mu);
    s.engine = std::move(engine);
}

std::shared_ptr<StoreEngine> store_engine()
{
    StoreState &s = state();
    std::lock_guard<std::mutex> lk(s.mu);
    if (!s.engine)
        s.engine = make_memory_engine();
    return s.engine;
}

void store_reset()
{
    StoreState &s = state();
    std::lock_guard<std::mutex> lk(s.mu);
    s.engine = make_memory_engine();
    s.bind_fail_rc = 0;
    s.bind_fail_count = 0;
}

void store_fail_binds(cerrno rc, unsigned count)
{
    StoreState &s = state();
    std::lock_guard<std::mutex> lk(s.mu);
    s.bind_fail_rc = rc;
    s.bind_fail_count = count;
}

size_t store_bind_count()
{
    StoreState &s = state();
    std::lock_guard<std::mutex> lk(s.mu);
    return s.binds;
}

TupleWriter &TupleWriter::d(int v)
{
    auto u = static_cast<uint32_t>(v);
    buf_ += 'd';
    for (int i = 0; i < 4; ++i)
        buf_ += static_cast<char>((u >> (8 * i)) & 0xff);
    return *this;
}

TupleWriter &TupleWriter::s(const std::string &v)
{
    auto n = static_cast<uint32_t>(v.size());
    buf_ += 's';
    for (int i = 0; i < 4; ++i)
        buf_ += static_cast<char>((n >> (8 * i)) & 0xff);
    buf_ += v;
    return *this;
}

} // namespace ocni::host

using namespace ocni::host;

namespace {

/* Fields of a tuple format: 'd' and 's'; empty on a malformed format. */
std::string fields_of(const char *fmt)
{
    std::string f;
    for (const char *p = fmt; *p != '\0'; p += 2) {
        if (p[0] != '%' || (p[1] != 'd' && p[1] != 's'))
            return std::string();
        f += p[1];
    }
    return f;
}

uint32_t read_u32(const unsigned char *p)
{
    return uint32_t(p[0]) | uint32_t(p[1]) << 8 | uint32_t(p[2]) << 16 | uint32_t(p[3]) << 24;
}

sysdb_datalist_t *new_list(std::vector<std::pair<std::string, std::string>> &&items)
{
    auto *l = new struct sysdb_datalist;
    l->items = std::move(items);
    return l;
}

} // namespace

extern "C" {

cerrno _sysdb_bind(sysdb_connid_t *conn, const char *root, uint32_t mode)
{
    if (conn == nullptr || root == nullptr || root[0] != '/')
        return SYSDB_RC_INVALID_ARG;
    try {
        StoreState &s = state();
        std::lock_guard<std::mutex> lk(s.mu);
        ++s.binds;
        if (s.bind_fail_count > 0) {
            --s.bind_fail_count;
            return s.bind_fail_rc;
        }
        auto c = std::make_unique<sysdb_conn>();
        c->root = root;
        if (c->root.back() != '/')
            c->root += '/';
        c->mode = mode;
        *conn = c.get();
        s.conns.emplace(c.get(), std::move(c));
        return YFW_RC_OK;
    } catch (...) {
        return SYSDB_RC_FAILED;
    }
}

cerrno sysdb_datalist(sysdb_connid_t conn, const char *path, const char *pattern, uint32_t *count,
                      sysdb_datalist_t **list, uint32_t flags)
{
    (void)flags;
    if (list != nullptr)
        *list = nullptr;
    if (conn == nullptr || path == nullptr || !valid_conn(conn))
        return SYSDB_RC_INVALID_ARG;
    try {
        Lookup lk;
        if (cerrno rc = prepare(conn, path, lk); rc != YFW_RC_OK)
            return rc;
        ListingPattern pat(pattern);
        if (!pat.ok())
            return SYSDB_RC_INVALID_ARG;
        const size_t n = lk.comps.size();
        bool found = false;
        std::set<std::string> seen;
        std::vector<std::pair<std::string, std::string>> items;
        cerrno rc = visit(conn, lk, [&](const std::string &key, const std::string &value,
                                        const std::vector<std::string_view> &kc, bool dir) {
            found = true;
            if (kc.size() == n || !pat.matches(kc[n]))
                return;
            if (kc.size() == n + 1 && !dir) {
                items.emplace_back(key, value);
                return;
            }
            std::string child = conn->root;
            for (size_t i = 0; i <= n; ++i) {
                child += kc[i];
                child += '/';
            }
            if (seen.insert(child).second)
                items.emplace_back(child, std::string());
        });
        if (rc != YFW_RC_OK)
            return rc;
        if (!found)
            return SYSDB_RC_NOT_FOUND;
        if (count != nullptr)
            *count = static_cast<uint32_t>(items.size());
        if (list != nullptr)
            *list = new_list(std::move(items));
        return YFW_RC_OK;
    } catch (...) {
        return SYSDB_RC_FAILED;
    }
}

cerrno sysdb_find_data(sysdb_connid_t conn, const char *path, const char *item, uint32_t flags,
                       uint32_t *count, sysdb_datalist_t **list)
{
    if (list != nullptr)
        *list = nullptr;
    if (conn == nullptr || path == nullptr || !valid_conn(conn))
        return SYSDB_RC_INVALID_ARG;
    try {
        Lookup lk;
        if (cerrno rc = prepare(conn, path, lk); rc != YFW_RC_OK)
            return rc;
        const size_t n = lk.comps.size();
        const size_t plen = strlen(path);
        const bool children = n == 0 || (plen > 0 && path[plen - 1] == '/');
        const std::string narrow = item != nullptr ? item : "";
        bool found = false;
        std::vector<std::pair<std::string, std::string>> items;
        cerrno rc = visit(conn, lk, [&](const std::string &key, const std::string &value,
                                        const std::vector<std::string_view> &kc, bool dir) {
            found = true;
            if (dir)
                return;
            size_t want = children ? n + 1 : n;
            if (kc.size() != want || (!narrow.empty() && kc[want - 1] != narrow))
                return;
            items.emplace_back(key, value);
        });
        if (rc != YFW_RC_OK)
            return rc;
        if (!found) {
            if (count != nullptr)
                *count = 0;
            return SYSDB_RC_NOT_FOUND;
        }
        if (count != nullptr)
            *count = static_cast<uint32_t>(items.size());
        if ((flags & SYSDB_FIND_LIST) && list != nullptr)
            *list = new_list(std::move(items));
        return YFW_RC_OK;
    } catch (...) {
        return SYSDB_RC_FAILED;
    }
}

cerrno sysdb_datalist_next(sysdb_datalist_t *list, const char **path, const void **tuple, uint32_t *tuple_len)
{
    if (list == nullptr)
        return SYSDB_RC_INVALID_ARG;
    if (list->pos >= list->items.size())
        return SYSDB_RC_NOT_FOUND;
    const auto &it = list->items[list->pos++];
    if (path != nullptr)
        *path = it.first.c_str();
    if (tuple != nullptr)
        *tuple = it.second.data();
    if (tuple_len != nullptr)
        *tuple_len = static_cast<uint32_t>(it.second.size());
    return YFW_RC_OK;
}

void sysdb_datalist_free(sysdb_datalist_t *list)
{
    delete list;
}

cerrno tuple_unpack(const void *tuple, uint32_t len, const char *fmt, ...)
{
    if (fmt == nullptr || (tuple == nullptr && len > 0))
        return SYSDB_RC_INVALID_ARG;
    std::string fields = fields_of(fmt);
    if (fields.empty() && fmt[0] != '\0')
        return SYSDB_RC_INVALID_ARG;
    const auto *p = static_cast<const unsigned char *>(tuple);
    const unsigned char *end = p + len;
    cerrno rc = YFW_RC_OK;
    va_list ap;
    va_start(ap, fmt);
    for (char f : fields) {
        if (p == end) /* fields past the end of the tuple are left as they are */
            break;
        if (end - p < 5 || char(*p) != f) {
            rc = SYSDB_RC_INVALID_ARG;
            break;
        }
        uint32_t v = read_u32(p + 1);
        p += 5;
        if (f == 'd') {
            int *out = va_arg(ap, int *);
            if (out != nullptr)
                *out = static_cast<int>(v);
            continue;
        }
        char *out = va_arg(ap, char *);
        size_t size = va_arg(ap, size_t);
        if (uint64_t(end - p) < v) {
            rc = SYSDB_RC_INVALID_ARG;
            break;
        }
        if (out != nullptr && size > 0) {
            size_t n = v < size - 1 ? v : size - 1;
            memcpy(out, p, n);
            out[n] = '\0';
        }
        p += v;
    }
    va_end(ap);
    return rc;
}

cerrno tuple_pack(void **tuple, uint32_t *len, const char *fmt, ...)
{
    if (tuple == nullptr || len == nullptr || fmt == nullptr)
        return SYSDB_RC_INVALID_ARG;
    *tuple = nullptr;
    *len = 0;
    std::string fields = fields_of(fmt);
    if (fields.empty() && fmt[0] != '\0')
        return SYSDB_RC_INVALID_ARG;
    try {
        TupleWriter w;
        va_list ap;
        va_start(ap, fmt);
        for (char f : fields) {
            if (f == 'd') {
                w.d(va_arg(ap, int));
            } else {
                const char *s = va_arg(ap, const char *);
                w.s(s != nullptr ? s : "");
            }
        }
        va_end(ap);
        void *buf = malloc(w.bytes().size() + 1);
        if (buf == nullptr)
            return SYSDB_RC_FAILED;
        memcpy(buf, w.bytes().data(), w.bytes().size());
        *tuple = buf;
        *len = static_cast<uint32_t>(w.bytes().size());
        return YFW_RC_OK;
    } catch (...) {
        return SYSDB_RC_FAILED;
    }
}

} // extern "C"
