/*
 * In-memory store engine: an ordered map with an undo journal for the
 * open transaction.
 */
#include <map>
#include <mutex>
#include <optional>
#include <utility>
#include <vector>

#include "host/store.h"

namespace ocni::host {
namespace {

class MemoryEngine : public StoreEngine {
public:
    cerrno begin() override
    {
        std::lock_guard<std::mutex> lk(mu_);
        if (in_txn_)
            return SYSDB_RC_FAILED;
        in_txn_ = true;
        undo_.clear();
        return YFW_RC_OK;
    }

    cerrno commit() override
    {
        std::lock_guard<std::mutex> lk(mu_);
        if (!in_txn_)
            return SYSDB_RC_FAILED;
        in_txn_ = false;
        undo_.clear();
        return YFW_RC_OK;
    }

    cerrno abort() override
    {
        std::lock_guard<std::mutex> lk(mu_);
        if (!in_txn_)
            return SYSDB_RC_FAILED;
        for (auto it = undo_.rbegin(); it != undo_.rend(); ++it) {
            if (it->second)
                data_[it->first] = *it->second;
            else
                data_.erase(it->first);
        }
        undo_.clear();
        in_txn_ = false;
        return YFW_RC_OK;
    }

    cerrno get(const std::string &key, std::string &value) override
    {
        std::lock_guard<std::mutex> lk(mu_);
        auto it = data_.find(key);
        if (it == data_.end())
            return SYSDB_RC_NOT_FOUND;
        value = it->second;
        return YFW_RC_OK;
    }

    cerrno put(const std::string &key, const std::string &value) override
    {
        std::lock_guard<std::mutex> lk(mu_);
        remember(key);
        data_[key] = value;
        return YFW_RC_OK;
    }

    cerrno del(const std::string &key) override
    {
        std::lock_guard<std::mutex> lk(mu_);
        auto it = data_.find(key);
        if (it == data_.end())
            return SYSDB_RC_NOT_FOUND;
        remember(key);
        data_.erase(it);
        return YFW_RC_OK;
    }

    cerrno scan(const std::string &lo, const std::string &hi, const Visitor &fn) override
    {
        /*
         * Copies the range out a chunk at a time, so that a visitor may
         * write to the store and an early stop copies little.
         */
        const size_t CHUNK = 256;
        std::vector<std::pair<std::string, std::string>> chunk;
        std::string from = lo;
        bool first = true;
        for (;;) {
            chunk.clear();
            {
                std::lock_guard<std::mutex> lk(mu_);
                auto it = first ? data_.lower_bound(from) : data_.upper_bound(from);
                for (; it != data_.end() && chunk.size() < CHUNK && (hi.empty() || it->first < hi); ++it)
                    chunk.emplace_back(it->first, it->second);
            }
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
    void remember(const std::string &key)
    {
        if (!in_txn_)
            return;
        auto it = data_.find(key);
        undo_.emplace_back(key, it == data_.end() ? std::nullopt : std::optional<std::string>(it->second));
    }

    std::mutex mu_;
    std::map<std::string, std::string> data_;
    bool in_txn_ = false;
    std::vector<std::pair<std::string, std::optional<std::string>>> undo_;
};

} // namespace

std::shared_ptr<StoreEngine> make_memory_engine()
{
    return std::make_shared<MemoryEngine>();
}

} // namespace ocni::host
