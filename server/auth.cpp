/*
 * Password and key files of the NETCONF server.
 */
#include "auth.h"

#include <crypt.h>
#include <libssh/libssh.h>

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

AuthorizedKeys::~AuthorizedKeys()
{
    for (auto &k : keys_)
        ssh_key_free(static_cast<ssh_key>(k.second));
}

bool AuthorizedKeys::load(const std::string &path, std::string &why)
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
        std::string user, type, base64;
        ssh_key key = nullptr;
        if (!(words >> user >> type >> base64)) {
            why = path + ":" + std::to_string(n) + ": expected name key-type key";
            return false;
        }
        enum ssh_keytypes_e t = ssh_key_type_from_name(type.c_str());
        if (t == SSH_KEYTYPE_UNKNOWN || ssh_pki_import_pubkey_base64(base64.c_str(), t, &key) != SSH_OK) {
            why = path + ":" + std::to_string(n) + ": not a public key of type " + type;
            return false;
        }
        keys_.emplace_back(user, key);
    }
    return true;
}

bool AuthorizedKeys::accepts(const std::string &name, const void *key) const
{
    for (const auto &k : keys_)
        if (k.first == name &&
            ssh_key_cmp(static_cast<ssh_key>(k.second), static_cast<ssh_key>(const_cast<void *>(key)),
                        SSH_KEY_CMP_PUBLIC) == 0)
            return true;
    return false;
}

}  // namespace ocni::server
