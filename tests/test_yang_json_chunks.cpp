/*
 * A large JSON edit cut into chunks of static routes: every route once,
 * under its keys, with the input's line numbers.
 */
#include <gtest/gtest.h>

#include <algorithm>
#include <string>
#include <vector>

#include "docs.h"
#include "json_chunks.h"

using namespace ocni::test;
using ocni::yang::JsonChunks;

namespace {

size_t lines(const std::string &s)
{
    return static_cast<size_t>(std::count(s.begin(), s.end(), '\n'));
}

/* Routes 10.0.<i>.0/24 from `from`, each on a line of its own. */
std::string routes(int from, int n)
{
    std::string s;
    for (int i = from; i < from + n; ++i)
        s += std::string(i > from ? ",\n" : "\n") + oc_route("10.0." + std::to_string(i) + ".0/24", oc_hop("1", "192.0.2.1"));
    return s;
}

TEST(JsonChunks, OnlyDocumentsOfTheKnownShapeWithMoreRoutesThanAChunkAreCut)
{
    const std::string four = oc_doc("red", routes(0, 4));
    const struct { const char *what; std::string text; size_t per_chunk; bool cut; } rows[] = {
        {"more routes than a chunk", four, 3, true}, {"as many as a chunk", four, 4, false},
        {"trailing bytes", four + "x", 3, false}, {"a top-level array", "[" + four + "]", 3, false},
        {"an instance without its name", four.substr(0, four.find("\"name\":\"red\",")) +
                                             four.substr(four.find("\"name\":\"red\",") + 13), 3, false},
        {"a route that is not an object", oc_doc("red", routes(0, 4) + ",7"), 3, false},
        {"an unterminated string", four.substr(0, four.size() - 20) + "\"", 3, false},
        {"a NUL byte", four.substr(0, 40) + std::string(1, '\0') + four.substr(40), 3, false},
        {"nesting deeper than any edit", oc_doc("red", routes(0, 4), ",\"x\":" + std::string(100, '[') + std::string(100, ']')), 3, false},
    };
    for (const auto &r : rows) {
        JsonChunks c;
        EXPECT_EQ(c.scan(r.text, r.per_chunk), r.cut) << r.what;
    }
}

TEST(JsonChunks, ChunksHoldEveryRouteOnceUnderItsKeysAndKeepLineNumbers)
{
    /* Keys written after the routes, prefixed member names, and text that looks like JSON inside strings. */
    const std::string red = "{\"protocols\":{\"openconfig-network-instance:protocol\":[{\"static-routes\":{\"static\":[" +
                            routes(0, 5) + "]},\"name\":\"DEFAULT\",\"identifier\":\"openconfig-policy-types:STATIC\"}]},"
                            "\"config\":{\"name\":\"r]\\\"{d\"},\"name\":\"r]\\\"{d\"}";
    const std::string text = "{\"openconfig-network-instance:network-instances\":{\"network-instance\":[\n" + red +
                             ",\n{\"name\":\"default\",\"protocols\":{\"protocol\":[{\"identifier\":\"openconfig-policy-types:STATIC\","
                             "\"name\":\"DEFAULT\",\"static-routes\":{\"static\":[" + routes(5, 3) + "]}}]}}]}}\n";
    JsonChunks c;
    ASSERT_TRUE(c.scan(text, 2));
    EXPECT_EQ(c.routes(), 8u);
    ASSERT_EQ(c.count(), 5u); /* red: 2 + 2 + 1, default: 2 + 1 */
    std::string all;
    for (size_t k = 0; k < c.count(); ++k) {
        std::string doc;
        size_t offset = 99;
        c.chunk(k, doc, offset);
        SCOPED_TRACE(doc);
        all += doc;
        if (k == 0) {
            EXPECT_EQ(offset, 0u);
            EXPECT_EQ(lines(doc), lines(text)) << "chunk 0 keeps every line";
            EXPECT_NE(doc.find("\"static\":[\n"), std::string::npos);
            continue;
        }
        const std::string first = doc.substr(doc.find("10.0."), 8);
        const int route = std::stoi(first.substr(5));
        /* Route i stands on input line 3 + i (red) or 4 + i (default); the chunk starts it on line 1. */
        EXPECT_EQ(offset + 1, static_cast<size_t>(route < 5 ? 3 + route : 4 + route)) << first;
        EXPECT_EQ(doc.find(route < 5 ? "\"name\":\"r]\\\"{d\",\"config\":{\"name\":\"r]\\\"{d\"}" : "\"name\":\"default\",\"protocols\""),
                  doc.find("\"name\"")) << "the instance's keys come first";
    }
    for (int i = 0; i < 8; ++i) {
        const std::string p = "\"10.0." + std::to_string(i) + ".0/24\"";
        size_t seen = 0; /* its key and its config/prefix, once in all the chunks */
        for (size_t at = all.find(p); at != std::string::npos; at = all.find(p, at + 1))
            ++seen;
        EXPECT_EQ(seen, 2u) << p;
    }
}

} // namespace
