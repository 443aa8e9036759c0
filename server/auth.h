/*
 * Who may open a session: SSH password users from a `name:hash` file
 * (crypt(3) hashes) and public keys from a `name key-type key` file.
 */
#ifndef OCNI_SERVER_AUTH_H
#define OCNI_SERVER_AUTH_H

#include <map>
#include <string>
#include <vector>

namespace ocni::server {

class Users {
public:
    /* Reads `name:hash` lines; blank lines and lines starting with # are skipped. */
    bool load(const std::string &path, std::string &why);
    /*
     * True when `password` matches the user's hash. An unknown user costs
     * the same hashing as a known one and fails alike.
     */
    bool check(const std::string &name, const std::string &password) const;
    size_t size() const { return hashes_.size(); }

private:
    std::map<std::string, std::string> hashes_;
};

/* Public keys from `name key-type base64 [comment]` lines (any key type the SSH library knows). */
class AuthorizedKeys {
public:
    AuthorizedKeys() = default;
    ~AuthorizedKeys();
    AuthorizedKeys(const AuthorizedKeys &) = delete;
    AuthorizedKeys &operator=(const AuthorizedKeys &) = delete;

    bool load(const std::string &path, std::string &why);
    /* True when `key` (an ssh_key) is one of the user's keys. */
    bool accepts(const std::string &name, const void *key) const;
    size_t size() const { return keys_.size(); }

private:
    std::vector<std::pair<std::string, void *>> keys_;
};

}  // namespace ocni::server

#endif
