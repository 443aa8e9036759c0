/*
 * One JSON document out of the batches of a read. Each batch is printed by
 * libyang as a document of its own; the enclosing containers and list
 * entries the batches share (the instance whose routes span two batches,
 * its protocol, the static list) are printed once and the batches' contents
 * spliced into them, so the result is byte for byte what printing the
 * whole tree at once gives. Only the open path of the document (the last
 * entry at every level) is remembered between batches.
 */
#ifndef OCNI_JSON_SPLICE_H
#define OCNI_JSON_SPLICE_H

#include <cstdio>
#include <string>
#include <vector>

namespace ocni::yang {

class JsonSplice {
public:
    explicit JsonSplice(FILE *out) : out_(out) {}
    /* Adds a batch printed as a whole document; false when it is not one libyang prints. */
    bool add(const std::string &document);
    /* Closes the document ("{}" when no batch came); false on a write error. */
    bool finish();
    bool started() const { return started_; }

private:
    struct Open {
        std::string identity; /* what makes a later batch's node the same node */
        std::string closer;   /* indentation and bracket */
        bool has_child = false;
    };
    FILE *out_;
    std::vector<Open> open_;
    bool started_ = false;
    bool write_error_ = false;
    void line(const char *text, size_t n);
    void put(const char *text, size_t n);
};

}  // namespace ocni::yang

#endif
