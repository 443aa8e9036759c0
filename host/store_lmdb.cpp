#include "store_lmdb.h"

#include <fcntl.h>
#include <lmdb.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/statvfs.h>
#include <unistd.h>

#include <cerrno>
#include <cstdint>
#include <cstring>
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
        struct stat st;
        if (stat(cur.c_str(), &st) == 0)
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

/*
 * The environment's data file, checked before LMDB maps it: LMDB opens an
 * empty file as a new environment and faults on pages past the end of a
 * short one. Reads the two meta pages (page header, then magic, version,
 * address, map size, the two database records whose first carries the
 * page size, last page, transaction id) and requires the file to hold
 * every page the newest meta page counts.
 */
bool check_data_file(const std::string &path, std::string &err)
{
    constexpr uint32_t MAGIC = 0xBEEFC0DE;
    constexpr size_t HDR = 16, PSIZE_AT = HDR + 24, LAST_PG_AT = HDR + 120, TXNID_AT = HDR + 128;
    int fd = open(path.c_str(), O_RDONLY | O_CLOEXEC);
    if (fd < 0) {
        if (errno == ENOENT)
            return true; /* a new store */
        err = "cannot read " + path + ": " + strerror(errno);
        return false;
    }
    struct stat st;
    bool ok = fstat(fd, &st) == 0;
    if (ok && !S_ISREG(st.st_mode)) {
        err = path + " is not a regular file";
        ok = false;
    } else if (ok && st.st_size == 0) {
        err = path + " is empty: the store was truncated or never written";
        ok = false;
    }
    uint64_t best_txn = 0, need = 0;
    bool any = false;
    uint32_t psize = 0;
    for (int page = 0; ok && page < 2; ++page) {
        unsigned char m[TXNID_AT + 8];
        off_t at = page == 0 ? 0 : off_t(psize); /* no valid first page: page 0 is read again and fails again */
        if (pread(fd, m, sizeof m, at) != ssize_t(sizeof m))
            break;
        uint32_t magic, ps;
        uint64_t last, txn;
        memcpy(&magic, m + HDR, 4);
        memcpy(&ps, m + PSIZE_AT, 4);
        memcpy(&last, m + LAST_PG_AT, 8);
        memcpy(&txn, m + TXNID_AT, 8);
        if (magic != MAGIC || ps < 512 || ps > 65536 || (ps & (ps - 1)) != 0)
            continue;
        if (page == 0)
            psize = ps;
        if (!any || txn >= best_txn) {
            best_txn = txn;
            need = (last + 1) * uint64_t(ps);
            any = true;
        }
    }
    if (ok && !any) {
        err = path + " is not a store: no valid meta page";
        ok = false;
    } else if (ok && uint64_t(st.st_size) < need) {
        err = path + " is truncated: " + std::to_string(st.st_size) + " bytes where its meta page counts " +
              std::to_string(need);
        ok = false;
    }
    close(fd);
    return ok;
}

MDB_val val_of(const std::string &s)
{
    MDB_val v;
    v.mv_size = s.size();
    v.mv_data = const_cast<char *>(s.data());
    return v;
}

/* The system's words for a failure; LMDB reports a short write as EIO, so say what ran out. */
std::string failure_cause(MDB_env *env, int rc)
{
    std::string why = mdb_strerror(rc);
    if (rc != EIO && rc != ENOSPC && rc != EFBIG)
        return why;
    const char *dir = nullptr;
    struct statvfs fs;
    if (mdb_env_get_path(env, &dir) == 0 && statvfs(dir, &fs) == 0 &&
        static_cast<unsigned long long>(fs.f_bavail) * fs.f_frsize < (1ull << 20))
        return why + " (the file system holding the store is full)";
    struct rlimit rl;
    if (getrlimit(RLIMIT_FSIZE, &rl) == 0 && rl.rlim_cur != RLIM_INFINITY)
        return why + " (the store file may not grow past this process's file size limit of " +
               std::to_string(rl.rlim_cur) + " bytes)";
    return why;
}

class LmdbTxn : public Txn {
public:
    LmdbTxn(MDB_txn *t, MDB_dbi dbi, bool write, size_t max_key) : t_(t), dbi_(dbi), write_(write), max_key_(max_key)
    {
    }
    ~LmdbTxn() override { abort(); }

    bool writable() const override { return write_; }

    cerrno get(const std::string &key, std::string &value) override
    {
        if (!t_)
            return SYSDB_RC_FAILED;
        if (key.empty() || key.size() > max_key_)
            return SYSDB_RC_NOT_FOUND;
        MDB_val k = val_of(key), v;
        int rc = mdb_get(t_, dbi_, &k, &v);
        if (rc == MDB_NOTFOUND)
            return SYSDB_RC_NOT_FOUND;
        if (rc != 0)
            return SYSDB_RC_FAILED;
        value.assign(static_cast<const char *>(v.mv_data), v.mv_size);
        return YFW_RC_OK;
    }

    cerrno put(const std::string &key, const std::string &value) override
    {
        if (!t_ || !write_)
            return SYSDB_RC_FAILED;
        if (key.empty() || key.size() > max_key_)
            return SYSDB_RC_INVALID_ARG;
        MDB_val k = val_of(key), v = val_of(value);
        return failed(mdb_put(t_, dbi_, &k, &v, 0)) ? SYSDB_RC_FAILED : YFW_RC_OK;
    }

    cerrno del(const std::string &key) override
    {
        if (!t_ || !write_)
            return SYSDB_RC_FAILED;
        if (key.empty() || key.size() > max_key_)
            return SYSDB_RC_NOT_FOUND;
        MDB_val k = val_of(key);
        int rc = mdb_del(t_, dbi_, &k, nullptr);
        if (rc == MDB_NOTFOUND)
            return SYSDB_RC_NOT_FOUND;
        return failed(rc) ? SYSDB_RC_FAILED : YFW_RC_OK;
    }

    /* Copies the range out a chunk at a time (all in this transaction), so that the visitor may write. */
    cerrno scan(const std::string &lo, const std::string &hi, const Visitor &fn) override
    {
        if (!t_)
            return SYSDB_RC_FAILED;
        /* Small first chunks keep an early stop cheap; later ones grow. */
        size_t chunk_size = 16;
        std::vector<std::pair<std::string, std::string>> chunk;
        std::string from = lo;
        bool first = true;
        for (;;) {
            chunk.clear();
            MDB_cursor *c = nullptr;
            if (mdb_cursor_open(t_, dbi_, &c) != 0)
                return SYSDB_RC_FAILED;
            MDB_val k, v;
            int r;
            if (from.empty()) {
                r = mdb_cursor_get(c, &k, &v, MDB_FIRST);
            } else {
                k = val_of(from);
                r = mdb_cursor_get(c, &k, &v, MDB_SET_RANGE);
            }
            for (; r == 0 && chunk.size() < chunk_size; r = mdb_cursor_get(c, &k, &v, MDB_NEXT)) {
                std::string key(static_cast<const char *>(k.mv_data), k.mv_size);
                if (!first && key == from)
                    continue; /* resumed on the last key of the previous chunk */
                if (!hi.empty() && key >= hi) {
                    r = MDB_NOTFOUND;
                    break;
                }
                chunk.emplace_back(std::move(key), std::string(static_cast<const char *>(v.mv_data), v.mv_size));
            }
            mdb_cursor_close(c);
            if (r != 0 && r != MDB_NOTFOUND)
                return SYSDB_RC_FAILED;
            if (chunk.empty())
                return YFW_RC_OK;
            for (const auto &kv : chunk)
                if (!fn(kv.first, kv.second))
                    return YFW_RC_OK;
            from = chunk.back().first;
            first = false;
            chunk_size = chunk_size < 1024 ? chunk_size * 4 : chunk_size;
        }
    }

    cerrno commit() override
    {
        if (!t_)
            return SYSDB_RC_FAILED;
        MDB_env *env = mdb_txn_env(t_); /* the commit frees the transaction */
        int rc = mdb_txn_commit(t_);
        t_ = nullptr;
        return failed(rc, env) ? SYSDB_RC_FAILED : YFW_RC_OK;
    }

    std::string cause() const override { return cause_; }

    void abort() override
    {
        if (t_)
            mdb_txn_abort(t_);
        t_ = nullptr;
    }

private:
    /* Keeps the system's words for a failure (LMDB's codes are errno values or its own). */
    bool failed(int rc, MDB_env *env = nullptr)
    {
        if (rc != 0)
            cause_ = failure_cause(env != nullptr ? env : mdb_txn_env(t_), rc);
        return rc != 0;
    }

    std::string cause_;
    MDB_txn *t_;
    MDB_dbi dbi_;
    bool write_;
    size_t max_key_;
};

class LmdbEngine : public StoreEngine {
public:
    ~LmdbEngine() override
    {
        if (env_)
            mdb_env_close(env_);
    }

    bool open(const std::string &dir, std::string &err)
    {
        if (!make_dirs(dir, err))
            return false;
        const std::string data = dir + "/data.mdb";
        if (!check_data_file(data, err))
            return false;
        /* A store the user cannot write is read without LMDB's lock file. */
        read_only_ = access(dir.c_str(), W_OK) != 0 || (access(data.c_str(), F_OK) == 0 && access(data.c_str(), W_OK) != 0);
        int rc = mdb_env_create(&env_);
        if (rc == 0)
            rc = mdb_env_set_mapsize(env_, LMDB_MAP_SIZE);
        /* MDB_NOTLS: read transactions are not tied to a thread. Syncs stay on: commits are durable. */
        unsigned flags = MDB_NOTLS | (read_only_ ? MDB_RDONLY | MDB_NOLOCK : 0u);
        if (rc == 0)
            rc = mdb_env_open(env_, dir.c_str(), flags, 0644);
        if (rc == 0 && !read_only_) {
            int dead = 0;
            mdb_reader_check(env_, &dead);
        }
        MDB_txn *t = nullptr;
        if (rc == 0)
            rc = mdb_txn_begin(env_, nullptr, read_only_ ? MDB_RDONLY : 0, &t);
        if (rc == 0)
            rc = mdb_dbi_open(t, nullptr, 0, &dbi_);
        if (rc == 0)
            rc = mdb_txn_commit(t);
        else if (t)
            mdb_txn_abort(t);
        if (rc != 0) {
            err = mdb_strerror(rc); /* the caller names the store, as for every other failure here */
            return false;
        }
        max_key_ = static_cast<size_t>(mdb_env_get_maxkeysize(env_));
        return true;
    }

    std::unique_ptr<Txn> begin_read() override
    {
        MDB_txn *t = nullptr;
        if (mdb_txn_begin(env_, nullptr, MDB_RDONLY, &t) != 0)
            return nullptr;
        return std::make_unique<LmdbTxn>(t, dbi_, false, max_key_);
    }

    std::unique_ptr<Txn> begin_write() override
    {
        MDB_txn *t = nullptr;
        if (read_only_ || mdb_txn_begin(env_, nullptr, 0, &t) != 0)
            return nullptr;
        return std::make_unique<LmdbTxn>(t, dbi_, true, max_key_);
    }

private:
    MDB_env *env_ = nullptr;
    MDB_dbi dbi_ = 0;
    size_t max_key_ = 511;
    bool read_only_ = false;
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
