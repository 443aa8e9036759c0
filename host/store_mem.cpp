/*
 * In-memory store engine, with the persistent engine's contract: a read
 * transaction holds a snapshot (the committed map, shared), the one write
 * transaction works on a copy that replaces the committed map at commit.
 */
#include <atomic>
#include <map>
#include <thread>
#include <mutex>
#include <utility>
#include <vector>

#include "host/store.h"

namespace ocni::host {
namespace {

using Data = std::map<std::string, std::string>;

class MemoryEngine;

class MemoryTxn : public Txn {
public:
    MemoryTxn(MemoryEngine &e, std::shared_ptr<const Data> snap, bool write);
    ~MemoryTxn() override { abort(); }

    bool writable() const override { return write_; }

    cerrno get(const std::string &key, std::string &value) override
    {
        const Data *d = data();
        if (d == nullptr)
            return SYSDB_RC_FAILED;
        auto it = d->find(key);
        if (it == d->end())
            return SYSDB_RC_NOT_FOUND;
        value = it->second;
        return YFW_RC_OK;
    }

    cerrno put(const std::string &key, const std::string &value) override
    {
        if (!work_)
            return SYSDB_RC_FAILED;
        (*work_)[key] = value;
        return YFW_RC_OK;
    }

    cerrno del(const std::string &key) override
    {
        if (!work_)
            return SYSDB_RC_FAILED;
        return work_->erase(key) != 0 ? YFW_RC_OK : SYSDB_RC_NOT_FOUND;
    }

    cerrno scan(const std::string &lo, const std::string &hi, const Visitor &fn) override
    {
        /* A chunk at a time, so that the visitor may write to this transaction. */
        /* Small first chunks keep an early stop cheap; later ones grow. */
        size_t chunk_size = 16;
        std::vector<std::pair<std::string, std::string>> chunk;
        std::string from = lo;
        bool first = true;
        for (;;) {
            const Data *d = data();
            if (d == nullptr)
                return SYSDB_RC_FAILED;
            chunk.clear();
            auto it = first ? d->lower_bound(from) : d->upper_bound(from);
            for (; it != d->end() && chunk.size() < chunk_size && (hi.empty() || it->first < hi); ++it)
                chunk.emplace_back(it->first, it->second);
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

    cerrno commit() override;
    void abort() override;

private:
    const Data *data() const { return work_ ? work_.get() : snap_.get(); }

    MemoryEngine &e_;
    std::shared_ptr<const Data> snap_;
    std::unique_ptr<Data> work_;
    bool write_;
};

class MemoryEngine : public StoreEngine {
public:
    std::unique_ptr<Txn> begin_read() override
    {
        std::lock_guard<std::mutex> lk(mu_);
        return std::make_unique<MemoryTxn>(*this, data_, false);
    }

    std::unique_ptr<Txn> begin_write() override
    {
        /* A thread already writing would wait for itself. */
        if (writer_thread_.load() == std::this_thread::get_id())
            return nullptr;
        writer_.lock();
        writer_thread_ = std::this_thread::get_id();
        std::shared_ptr<const Data> snap;
        {
            std::lock_guard<std::mutex> lk(mu_);
            snap = data_;
        }
        return std::make_unique<MemoryTxn>(*this, snap, true);
    }

    void publish(std::unique_ptr<Data> d)
    {
        std::lock_guard<std::mutex> lk(mu_);
        data_ = std::shared_ptr<const Data>(std::move(d));
    }
    void release_writer()
    {
        writer_thread_ = std::thread::id();
        writer_.unlock();
    }

private:
    std::mutex mu_;     /* guards data_ */
    std::mutex writer_; /* held by the open write transaction */
    std::atomic<std::thread::id> writer_thread_{};
    std::shared_ptr<const Data> data_ = std::make_shared<const Data>();
};

MemoryTxn::MemoryTxn(MemoryEngine &e, std::shared_ptr<const Data> snap, bool write)
    : e_(e), snap_(std::move(snap)), write_(write)
{
    if (write)
        work_ = std::make_unique<Data>(*snap_);
}

cerrno MemoryTxn::commit()
{
    if (!snap_)
        return SYSDB_RC_FAILED;
    if (write_) {
        e_.publish(std::move(work_));
        e_.release_writer();
    }
    snap_.reset();
    work_.reset();
    return YFW_RC_OK;
}

void MemoryTxn::abort()
{
    if (!snap_)
        return;
    if (write_)
        e_.release_writer();
    snap_.reset();
    work_.reset();
}

} // namespace

std::shared_ptr<StoreEngine> make_memory_engine()
{
    return std::make_shared<MemoryEngine>();
}

} // namespace ocni::host
