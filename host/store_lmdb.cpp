#include "store_lmdb.h"

#include <lmdb.h>
#include <sys/stat.h>

#include <cerrno>
#include <cstring>
#include <mutex>
#include <utility>
#include <vector>

namespace ocni::host {

namespace {

/* mkdir -p */
bool make_dirs(const std::string &dir, std::string &err)
{
    std::string cur;
    size_t pos = 0;
    while (pos != std::string::npos) {
        pos = dir.find('/', pos + 1);
        cur = dir.substr(0, pos);
        if (cur.empty())
            continue;
        if (mkdir(cur.c_str(), 0755) != 0 && errno != EEXIST) {
            err = "cannot create " + cur + ": " + strerror(errno);
            return false;
        }
    }
    struct stat st;
    if (stat(dir.c_str(), &st) != 0 || !S_ISDIR(st.st_mode)) {
        err = dir + " is not a directory";
        return false;
    }
    return true;
}

MDB_val val_of(const std::string &s)
{
    MDB_val v;
    v.mv_size = s.size();
    v.mv_data = const_cast<char *>(s.data());
    return v;
}

class LmdbEngine : public StoreEngine {
public:
    ~LmdbEngine() override
    {
        if (wtxn_)
            mdb_txn_abort(wtxn_);
        if (env_)
            mdb_env_close(env_);
    }

    bool open(const std::string &dir, std::string &err)
    {
        if (!make_dirs(dir, err))
            return false;
        int rc = mdb_env_create(&env_);
        if (rc == 0)
            rc = mdb_env_set_mapsize(env_, LMDB_MAP_SIZE);
        /* MDB_NOTLS: read transactions are not tied to a thread. Syncs stay on: commits are durable. */
        if (rc == 0)
            rc = mdb_env_open(env_, dir.c_str(), MDB_NOTLS, 0644);
        MDB_txn *t = nullptr;
        if (rc == 0)
            rc = mdb_txn_begin(env_, nullptr, 0, &t);
        if (rc == 0)
            rc = mdb_dbi_open(t, nullptr, 0, &dbi_);
        if (rc == 0)
            rc = mdb_txn_commit(t);
        else if (t)
            mdb_txn_abort(t);
        if (rc != 0) {
            err = "store " + dir + ": " + mdb_strerror(rc);
            return false;
        }
        max_key_ = static_cast<size_t>(mdb_env_get_maxkeysize(env_));
        return true;
    }

    cerrno begin() override
    {
        std::lock_guard<std::recursive_mutex> lk(mu_);
        if (wtxn_)
            return SYSDB_RC_FAILED;
        return mdb_txn_begin(env_, nullptr, 0, &wtxn_) == 0 ? YFW_RC_OK : (wtxn_ = nullptr, SYSDB_RC_FAILED);
    }

    cerrno commit() override
    {
        std::lock_guard<std::recursive_mutex> lk(mu_);
        if (!wtxn_)
            return SYSDB_RC_FAILED;
        int rc = mdb_txn_commit(wtxn_);
        wtxn_ = nullptr;
        return rc == 0 ? YFW_RC_OK : SYSDB_RC_FAILED;
    }

    cerrno abort() override
    {
        std::lock_guard<std::recursive_mutex> lk(mu_);
        if (!wtxn_)
            return SYSDB_RC_FAILED;
        mdb_txn_abort(wtxn_);
        wtxn_ = nullptr;
        return YFW_RC_OK;
    }

    cerrno get(const std::string &key, std::string &value) override
    {
        if (key.empty() || key.size() > max_key_)
            return SYSDB_RC_NOT_FOUND;
        std::lock_guard<std::recursive_mutex> lk(mu_);
        return with_read([&](MDB_txn *t) -> cerrno {
            MDB_val k = val_of(key), v;
            int rc = mdb_get(t, dbi_, &k, &v);
            if (rc == MDB_NOTFOUND)
                return SYSDB_RC_NOT_FOUND;
            if (rc != 0)
                return SYSDB_RC_FAILED;
            value.assign(static_cast<const char *>(v.mv_data), v.mv_size);
            return YFW_RC_OK;
        });
    }

    cerrno put(const std::string &key, const std::string &value) override
    {
        if (key.empty() || key.size() > max_key_)
            return SYSDB_RC_INVALID_ARG;
        std::lock_guard<std::recursive_mutex> lk(mu_);
        return with_write([&](MDB_txn *t) -> cerrno {
            MDB_val k = val_of(key), v = val_of(value);
            return mdb_put(t, dbi_, &k, &v, 0) == 0 ? YFW_RC_OK : SYSDB_RC_FAILED;
        });
    }

    cerrno del(const std::string &key) override
    {
        if (key.empty() || key.size() > max_key_)
            return SYSDB_RC_NOT_FOUND;
        std::lock_guard<std::recursive_mutex> lk(mu_);
        return with_write([&](MDB_txn *t) -> cerrno {
            MDB_val k = val_of(key);
            int rc = mdb_del(t, dbi_, &k, nullptr);
            if (rc == MDB_NOTFOUND)
                return SYSDB_RC_NOT_FOUND;
            return rc == 0 ? YFW_RC_OK : SYSDB_RC_FAILED;
        });
    }

    /*
     * Copies the range out a chunk at a time with no lock held while the
     * visitor runs, so that a visitor may write to the store.
     */
    cerrno scan(const std::string &lo, const std::string &hi, const Visitor &fn) override
    {
        const size_t CHUNK = 256;
        std::vector<std::pair<std::string, std::string>> chunk;
        std::string from = lo;
        bool first = true;
        for (;;) {
            chunk.clear();
            cerrno rc;
            {
                std::lock_guard<std::recursive_mutex> lk(mu_);
                rc = with_read([&](MDB_txn *t) -> cerrno {
                    MDB_cursor *c = nullptr;
                    if (mdb_cursor_open(t, dbi_, &c) != 0)
                        return SYSDB_RC_FAILED;
                    MDB_val k, v;
                    int r;
                    if (from.empty()) {
                        r = mdb_cursor_get(c, &k, &v, MDB_FIRST);
                    } else {
                        k = val_of(from);
                        r = mdb_cursor_get(c, &k, &v, MDB_SET_RANGE);
                    }
                    for (; r == 0 && chunk.size() < CHUNK; r = mdb_cursor_get(c, &k, &v, MDB_NEXT)) {
                        std::string key(static_cast<const char *>(k.mv_data), k.mv_size);
                        if (!first && key == from)
                            continue; /* resumed on the last key of the previous chunk */
                        if (!hi.empty() && key >= hi) {
                            r = MDB_NOTFOUND;
                            break;
                        }
                        chunk.emplace_back(std::move(key),
                                           std::string(static_cast<const char *>(v.mv_data), v.mv_size));
                    }
                    mdb_cursor_close(c);
                    return r == 0 || r == MDB_NOTFOUND ? YFW_RC_OK : SYSDB_RC_FAILED;
                });
            }
            if (rc != YFW_RC_OK)
                return rc;
            if (chunk.empty())
                return YFW_RC_OK;
            for (const auto &kv : chunk)
                if (!fn(kv.first, kv.second))
                    return YFW_RC_OK;
            from = chunk.back().first;
            first = false;
        }
    }

private:
    /* Reads inside the open write transaction see its writes; otherwise a fresh read snapshot. */
    template <typename F> cerrno with_read(F f)
    {
        if (wtxn_)
            return f(wtxn_);
        MDB_txn *t = nullptr;
        if (mdb_txn_begin(env_, nullptr, MDB_RDONLY, &t) != 0)
            return SYSDB_RC_FAILED;
        cerrno rc = f(t);
        mdb_txn_abort(t);
        return rc;
    }

    template <typename F> cerrno with_write(F f)
    {
        if (wtxn_)
            return f(wtxn_);
        MDB_txn *t = nullptr;
        if (mdb_txn_begin(env_, nullptr, 0, &t) != 0)
            return SYSDB_RC_FAILED;
        cerrno rc = f(t);
        if (rc != YFW_RC_OK && rc != SYSDB_RC_NOT_FOUND) {
            mdb_txn_abort(t);
            return rc;
        }
        return mdb_txn_commit(t) == 0 ? rc : SYSDB_RC_FAILED;
    }

    MDB_env *env_ = nullptr;
    MDB_dbi dbi_ = 0;
    MDB_txn *wtxn_ = nullptr;
    size_t max_key_ = 511;
    std::recursive_mutex mu_;
};

} // namespace

std::shared_ptr<StoreEngine> open_lmdb_engine(const std::string &dir, std::string &err)
{
    auto e = std::make_shared<LmdbEngine>();
    if (!e->open(dir, err))
        return nullptr;
    return e;
}

} // namespace ocni::host
