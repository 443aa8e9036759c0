/*
 * ocni-map run as a user runs it, in a scratch directory holding the store:
 * exit status, standard output and error.
 */
#ifndef OCNI_TEST_CLI_FIXTURE_H
#define OCNI_TEST_CLI_FIXTURE_H

#include <gtest/gtest.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdlib>
#include <fstream>
#include <sstream>
#include <string>
#include <utility>
#include <vector>

#include "host/store_lmdb.h"

namespace ocni::test {

inline std::string env(const char *name, const char *fallback)
{
    const char *v = getenv(name);
    return v != nullptr ? v : fallback;
}

inline std::string read_file(const std::string &path)
{
    std::ifstream in(path);
    std::ostringstream s;
    s << in.rdbuf();
    return s.str();
}

inline bool exists(const std::string &path)
{
    struct stat st;
    return stat(path.c_str(), &st) == 0;
}

inline std::string quote(const std::string &s)
{
    std::string out = "'";
    for (char c : s)
        out += c == '\'' ? std::string("'\\''") : std::string(1, c);
    return out + "'";
}

struct Outcome {
    int status = -1;
    std::string out, err;
};

/* Each test gets a scratch directory as working directory; the store lives in it. */
class Cli : public ::testing::Test {
protected:
    void SetUp() override
    {
        char tmpl[] = "/tmp/ocni-cli-test.XXXXXX";
        ASSERT_NE(mkdtemp(tmpl), nullptr);
        dir_ = tmpl;
        store_ = dir_ + "/store";
        binary_ = env("OCNI_BINARY_DIR", ".") + "/tools/ocni-map";
        examples_ = env("OCNI_SOURCE_DIR", ".") + "/examples";
        ASSERT_TRUE(exists(binary_)) << binary_;
    }
    void TearDown() override
    {
        std::string cmd = "rm -rf " + quote(dir_);
        EXPECT_EQ(std::system(cmd.c_str()), 0);
    }

    /* Runs ocni-map with `args` (already shell-quoted where needed) and optional standard input. */
    Outcome run(const std::string &args, const std::string &input = "", bool with_store = true)
    {
        std::string in = dir_ + "/stdin", out = dir_ + "/stdout", err = dir_ + "/stderr";
        std::ofstream(in) << input;
        std::string cmd = "cd " + quote(dir_) + " && " + runner_ + quote(binary_) +
                          (with_store ? " --store " + quote(store_) : std::string()) + " " + args + " <" +
                          quote(in) + " >" + quote(out) + " 2>" + quote(err);
        int raw = std::system(cmd.c_str());
        Outcome r;
        r.status = WIFEXITED(raw) ? WEXITSTATUS(raw) : 128 + WTERMSIG(raw);
        r.out = read_file(out);
        r.err = read_file(err);
        return r;
    }

    std::string example(const char *name) const { return quote(examples_ + "/" + name); }

    /* Starts ocni-map in the background; wait_all() collects the exit statuses in start order. */
    void start(const std::string &args, const std::string &input = "")
    {
        std::string in = dir_ + "/stdin" + std::to_string(jobs_.size());
        std::ofstream(in) << input;
        pid_t pid = fork();
        ASSERT_GE(pid, 0);
        if (pid == 0) {
            std::string cmd = quote(binary_) + " --store " + quote(store_) + " " + args + " <" + quote(in) +
                              " >/dev/null 2>&1";
            execl("/bin/sh", "sh", "-c", cmd.c_str(), static_cast<char *>(nullptr));
            _exit(127);
        }
        jobs_.push_back(pid);
    }
    std::vector<int> wait_all()
    {
        std::vector<int> out;
        for (pid_t pid : jobs_) {
            int raw = 0;
            waitpid(pid, &raw, 0);
            out.push_back(WIFEXITED(raw) ? WEXITSTATUS(raw) : 128 + WTERMSIG(raw));
        }
        jobs_.clear();
        return out;
    }

    /* Writes raw keys into the store file, bypassing every check (old formats, other programs). */
    void put_raw(const std::vector<std::pair<std::string, std::string>> &keys)
    {
        std::string err;
        auto e = ocni::host::open_lmdb_engine(store_, err);
        ASSERT_NE(e, nullptr) << err;
        for (const auto &kv : keys)
            ASSERT_EQ(e->put(kv.first, kv.second), 0u) << kv.first;
    }

    /* Every key of the store with its value, in key order. */
    std::vector<std::pair<std::string, std::string>> dump_raw()
    {
        std::string err;
        std::vector<std::pair<std::string, std::string>> all;
        auto e = ocni::host::open_lmdb_engine(store_, err);
        EXPECT_TRUE(e && e->scan("", "", [&](const std::string &k, const std::string &v) { return all.emplace_back(k, v), true; }) == 0) << err;
        return all;
    }

    std::vector<pid_t> jobs_;
    std::string runner_; /* what runs the command ("" or a privilege change) */

    std::string dir_, store_, binary_, examples_;
};

} // namespace ocni::test

#endif
