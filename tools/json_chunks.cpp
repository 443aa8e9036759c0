#include "json_chunks.h"

#include <algorithm>
#include <cstring>
#include <functional>

namespace ocni::yang {

/*
 * One pass over the text: JSON syntax is followed exactly (strings with
 * their escapes, nesting), the path down to the static lists is followed
 * by member names, everything else is skipped as a value.
 */
class JsonScan {
public:
    JsonScan(const std::string &text, JsonChunks &out) : s_(text.data()), n_(text.size()), out_(out) {}

    bool document()
    {
        bool ok = object(0, [&](const std::string &name, int d) {
            return name == "openconfig-network-instance:network-instances" ? instances(d) : value(d);
        });
        ws();
        return ok && i_ == n_;
    }

private:
    using Member = std::function<bool(const std::string &name, int depth)>;
    static constexpr int kMaxDepth = 64;
    const char *s_;
    size_t n_, i_ = 0, line_ = 1;
    JsonChunks &out_;

    /* A member name of the network-instance module, with or without its prefix. */
    static bool is(const std::string &name, const char *local)
    {
        static const std::string prefix = "openconfig-network-instance:";
        return name == local || (name.compare(0, prefix.size(), prefix) == 0 && name.compare(prefix.size(), std::string::npos, local) == 0);
    }

    void ws()
    {
        for (; i_ < n_; ++i_) {
            const char c = s_[i_];
            if (c == '\n')
                ++line_;
            else if (c != ' ' && c != '\t' && c != '\r')
                break;
        }
    }
    bool take(char c)
    {
        ws();
        if (i_ >= n_ || s_[i_] != c)
            return false;
        ++i_;
        return true;
    }
    /* A string; `raw` gets it as written, quotes included. */
    bool string(std::string *raw)
    {
        ws();
        if (i_ >= n_ || s_[i_] != '"')
            return false;
        const size_t begin = i_++;
        for (; i_ < n_ && s_[i_] != '"'; ++i_) {
            if (static_cast<unsigned char>(s_[i_]) < 0x20)
                return false;
            if (s_[i_] == '\\' && ++i_ >= n_)
                return false;
        }
        if (i_ >= n_)
            return false;
        ++i_;
        if (raw != nullptr)
            raw->assign(s_ + begin, i_ - begin);
        return true;
    }
    bool object(int depth, const Member &member)
    {
        if (depth > kMaxDepth || !take('{'))
            return false;
        if (take('}'))
            return true;
        std::string raw;
        do {
            if (!string(&raw) || !take(':') || !member(raw.substr(1, raw.size() - 2), depth + 1))
                return false;
        } while (take(','));
        return take('}');
    }
    bool array(int depth, const std::function<bool(int)> &element)
    {
        if (depth > kMaxDepth || !take('['))
            return false;
        if (take(']'))
            return true;
        do {
            if (!element(depth + 1))
                return false;
        } while (take(','));
        return take(']');
    }
    bool value(int depth)
    {
        ws();
        if (i_ >= n_)
            return false;
        switch (s_[i_]) {
        case '"':
            return string(nullptr);
        case '{':
            return object(depth, [&](const std::string &, int d) { return value(d); });
        case '[':
            return array(depth, [&](int d) { return value(d); });
        default:
            break;
        }
        const size_t begin = i_; /* a number, true, false or null */
        while (i_ < n_ && (isalnum(static_cast<unsigned char>(s_[i_])) || s_[i_] == '+' || s_[i_] == '-' || s_[i_] == '.'))
            ++i_;
        return i_ > begin;
    }

    bool instances(int depth)
    {
        return object(depth, [&](const std::string &name, int d) {
            return is(name, "network-instance") ? array(d, [&](int e) { return instance(e); }) : value(d);
        });
    }
    /* A list entry: its members, then the static lists found inside it get what `label` says of it. */
    bool entry(int depth, const Member &member, const std::function<void(JsonChunks::Group &)> &label)
    {
        const size_t first = out_.groups_.size();
        const bool ok = object(depth, member);
        for (size_t g = first; g < out_.groups_.size(); ++g)
            label(out_.groups_[g]);
        return ok;
    }
    bool instance(int depth)
    {
        std::string name, config_name;
        return entry(depth, [&](const std::string &member, int d) {
            if (is(member, "name"))
                return string(&name);
            if (is(member, "config"))
                return object(d, [&](const std::string &m, int e) { return is(m, "name") ? string(&config_name) : value(e); });
            if (is(member, "protocols"))
                return object(d, [&](const std::string &m, int e) {
                    return is(m, "protocol") ? array(e, [&](int f) { return protocol(f); }) : value(e);
                });
            return value(d);
        }, [&](JsonChunks::Group &g) {
            g.instance = name;
            g.instance_config_name = config_name;
        });
    }
    bool protocol(int depth)
    {
        std::string identifier, name;
        return entry(depth, [&](const std::string &member, int d) {
            if (is(member, "identifier"))
                return string(&identifier);
            if (is(member, "name"))
                return string(&name);
            if (is(member, "static-routes"))
                return object(d, [&](const std::string &m, int e) { return is(m, "static") ? statics(e) : value(e); });
            return value(d);
        }, [&](JsonChunks::Group &g) {
            g.identifier = identifier;
            g.protocol = name;
        });
    }
    bool statics(int depth)
    {
        JsonChunks::Group group;
        if (!take('['))
            return false;
        group.open = i_;
        if (!take(']')) {
            do {
                ws();
                JsonChunks::Element e;
                e.line = line_;
                e.at.begin = i_;
                if (i_ >= n_ || s_[i_] != '{' || !value(depth + 1))
                    return false;
                e.at.end = i_;
                group.elements.push_back(e);
            } while (take(','));
            ws();
            if (i_ >= n_ || s_[i_] != ']')
                return false;
            ++i_;
        }
        group.close = i_ - 1;
        out_.groups_.push_back(std::move(group));
        return true;
    }
};

bool JsonChunks::scan(const std::string &text, size_t routes)
{
    text_ = &text;
    groups_.clear();
    chunks_.clear();
    total_ = 0;
    if (routes == 0 || !JsonScan(text, *this).document())
        return false;
    for (const Group &g : groups_) {
        if (!g.elements.empty() &&
            (g.instance.empty() || g.identifier.empty() || g.protocol.empty()))
            return false; /* a list entry without its keys: libyang says so */
        total_ += g.elements.size();
    }
    if (total_ <= routes)
        return false;
    for (size_t g = 0; g < groups_.size(); ++g)
        for (size_t first = 0; first < groups_[g].elements.size(); first += routes)
            chunks_.push_back({g, first, std::min(first + routes, groups_[g].elements.size())});
    return true;
}

void JsonChunks::chunk(size_t k, std::string &doc, size_t &line_offset) const
{
    const std::string &t = *text_;
    const Chunk &c = chunks_[k];
    const Group &g = groups_[c.group];
    doc.clear();
    auto newlines = [&](size_t from, size_t to) {
        doc.append(static_cast<size_t>(std::count(t.begin() + from, t.begin() + to, '\n')), '\n');
    };
    if (k == 0) {
        line_offset = 0;
        size_t at = 0;
        for (size_t i = 0; i < groups_.size(); ++i) {
            const Group &h = groups_[i];
            if (h.elements.empty())
                continue;
            const size_t keep = i == c.group ? h.elements[c.last - 1].at.end : h.open;
            doc.append(t, at, keep - at);
            newlines(keep, h.close);
            at = h.close;
        }
        doc.append(t, at, std::string::npos);
        return;
    }
    line_offset = g.elements[c.first].line - 1;
    doc = "{\"openconfig-network-instance:network-instances\":{\"network-instance\":[{\"name\":" + g.instance;
    if (!g.instance_config_name.empty())
        doc += ",\"config\":{\"name\":" + g.instance_config_name + "}";
    doc += ",\"protocols\":{\"protocol\":[{\"identifier\":" + g.identifier + ",\"name\":" + g.protocol +
           ",\"static-routes\":{\"static\":[";
    const size_t begin = g.elements[c.first].at.begin;
    doc.append(t, begin, g.elements[c.last - 1].at.end - begin);
    doc += "]}}]}}]}}";
}

}  // namespace ocni::yang
