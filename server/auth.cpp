/*
 * Password and key files of the NETCONF server.
 */
#include "auth.h"

#include <crypt.h>

#include <cstring>
#include <fstream>
#include <sstream>

namespace ocni::server {

namespace {

/* Hashed in place of an unknown user's hash, so that both fail in the same time. */
const char *const kDummyHash =
    "$6$ocnidummysalt$0ZJ0G9pDzxg1kTLyb8jY5VQcG1xF0c0kDqPqY7n1nA7Pp3q9d8r3oJbX8d2d5kYQ3Zs1m6f3bJq0e1u2i3o4p5";

bool same(const char *a, const char *b)
{
    size_t n = strlen(a), m = strlen(b);
    unsigned char diff = n == m ? 0 : 1;
    for (size_t i = 0; i < n && i < m; ++i)
        diff |= static_cast<unsigned char>(a[i] ^ b[i]);
    return diff == 0;
}

bool skip(const std::string &line)
{
    size_t i = line.find_first_not_of(" \t\r");
    return i == std::string::npos || line[i] == '#';
}

}  // namespace

bool Users::load(const std::string &path, std::string &why)
{
    std::ifstream in(path);
    if (!in) {
        why = "cannot read users file " + path + ": " + strerror(errno);
        return false;
    }
    std::string line;
    for (int n = 1; std::getline(in, line); ++n) {
        if (!line.empty() && line.back() == '\r')
            line.pop_back();
        if (skip(line))
            continue;
        size_t colon = line.find(':');
        if (colon == 0 || colon == std::string::npos || line.compare(colon + 1, 3, "$6$") != 0) {
            why = path + ":" + std::to_string(n) + ": expected name:hash with a SHA-512 crypt hash ($6$...)";
            return false;
        }
        hashes_[line.substr(0, colon)] = line.substr(colon + 1);
    }
    return true;
}

bool Users::check(const std::string &name, const std::string &password) const
{
    auto it = hashes_.find(name);
    const char *hash = it == hashes_.end() ? kDummyHash : it->second.c_str();
    struct crypt_data data;
    memset(&data, 0, sizeof(data));
    const char *got = crypt_r(password.c_str(), hash, &data);
    bool ok = got != nullptr && got[0] != '*' && same(got, hash);
    return ok && it != hashes_.end();
}

bool load_authorized_keys(const std::string &path, std::vector<AuthorizedKey> &out, std::string &why)
{
    std::ifstream in(path);
    if (!in) {
        why = "cannot read authorized keys file " + path + ": " + strerror(errno);
        return false;
    }
    std::string line;
    for (int n = 1; std::getline(in, line); ++n) {
        if (skip(line))
            continue;
        std::istringstream words(line);
        AuthorizedKey k;
        if (!(words >> k.user >> k.type >> k.base64)) {
            why = path + ":" + std::to_string(n) + ": expected name key-type key";
            return false;
        }
        out.push_back(k);
    }
    return true;
}

}  // namespace ocni::server
