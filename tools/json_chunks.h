/*
 * A large OpenConfig JSON edit read a chunk of static routes at a time, so
 * that no whole-document tree is ever built: the text is scanned once for
 * its static-route lists, and each chunk is a small document of its own
 * that libyang parses, the edit walks and the engine frees (the edit parses
 * the next chunk on a second thread meanwhile: two chunks at most are alive).
 *
 * Chunk 0 is the document itself with every static list cut to its first
 * routes of chunk 0 (the other routes give way to as many newlines, so
 * libyang's line numbers still name lines of the input): it carries every
 * node that is not a static route, and libyang checks all of them there.
 * Each next chunk holds up to `routes` static routes of one list, under
 * their network instance and protocol with their keys (and the instance's
 * config/name when the input gives one: by it the mapping knows that the
 * edit creates the instance), exactly as the walker's later parts are.
 * Its messages name input lines by adding line_offset().
 *
 * Anything the scan does not recognise leaves the document whole
 * (scan() returns false): libyang then parses it and says what is wrong.
 */
#ifndef OCNI_JSON_CHUNKS_H
#define OCNI_JSON_CHUNKS_H

#include <cstddef>
#include <string>
#include <vector>

namespace ocni::yang {

class JsonChunks {
public:
    /* True when `text` holds more than `routes` static routes, in lists this scan can cut. */
    bool scan(const std::string &text, size_t routes);
    size_t count() const { return chunks_.size(); }
    size_t routes() const { return total_; }
    /* Chunk `k` as a document; `line_offset` is what to add to its line numbers. */
    void chunk(size_t k, std::string &doc, size_t &line_offset) const;

private:
    struct Span {
        size_t begin = 0, end = 0; /* offsets of the value's first and past its last byte */
    };
    struct Element {
        Span at;
        size_t line = 1;
    };
    struct Group { /* one static list */
        std::string instance, instance_config_name, identifier, protocol; /* raw JSON strings */
        size_t open = 0, close = 0; /* offsets just past '[' and of ']' */
        std::vector<Element> elements;
    };
    struct Chunk {
        size_t group, first, last; /* elements [first, last) */
    };
    const std::string *text_ = nullptr;
    std::vector<Group> groups_;
    std::vector<Chunk> chunks_;
    size_t total_ = 0;

    friend class JsonScan;
};

}  // namespace ocni::yang

#endif
