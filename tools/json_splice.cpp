#include "json_splice.h"

#include <cstring>

namespace ocni::yang {

namespace {

/* A line of the pretty-printed document and, when it opens an object or array, its children. */
struct Node {
    const char *text = nullptr;
    size_t len = 0; /* without the trailing comma */
    size_t close = 0; /* line index of the closing bracket (openers only) */
    std::vector<size_t> children;
};

bool opens(const Node &n) { return n.len > 0 && (n.text[n.len - 1] == '{' || n.text[n.len - 1] == '['); }

std::string stripped(const Node &n)
{
    size_t i = 0;
    while (i < n.len && n.text[i] == ' ')
        ++i;
    return std::string(n.text + i, n.len - i);
}

}  // namespace

void JsonSplice::put(const char *text, size_t n)
{
    if (n > 0 && fwrite(text, 1, n, out_) != n)
        write_error_ = true;
}

void JsonSplice::line(const char *text, size_t n)
{
    if (started_)
        put("\n", 1);
    started_ = true;
    put(text, n);
}

bool JsonSplice::add(const std::string &doc)
{
    /* Lines, and the tree they form by their brackets. */
    std::vector<Node> lines;
    for (size_t at = 0; at < doc.size();) {
        size_t end = doc.find('\n', at);
        if (end == std::string::npos)
            end = doc.size();
        Node n;
        n.text = doc.data() + at;
        n.len = end - at;
        if (n.len > 0 && n.text[n.len - 1] == ',')
            --n.len;
        if (n.len > 0)
            lines.push_back(n);
        at = end + 1;
    }
    if (lines.empty() || stripped(lines[0]) != "{")
        return false;
    std::vector<size_t> stack;
    for (size_t i = 0; i < lines.size(); ++i) {
        const std::string s = stripped(lines[i]);
        if (s == "}" || s == "]") {
            if (stack.empty())
                return false;
            lines[stack.back()].close = i;
            stack.pop_back();
            continue;
        }
        if (!stack.empty())
            lines[stack.back()].children.push_back(i);
        else if (i != 0)
            return false;
        if (opens(lines[i]))
            stack.push_back(i);
    }
    if (!stack.empty())
        return false;

    /* An array entry is known by its first (key) line; anything else by its own line. */
    auto identity = [&](size_t i) {
        std::string id = stripped(lines[i]);
        if (id == "{" && !lines[i].children.empty())
            id += "\n" + stripped(lines[lines[i].children[0]]);
        return id;
    };
    auto close_to = [&](size_t depth) {
        while (open_.size() > depth) {
            line(open_.back().closer.data(), open_.back().closer.size());
            open_.pop_back();
        }
    };
    /* Prints node i with its last descendants left open. */
    auto print_open = [&](size_t i, auto &&self) -> void {
        if (!open_.empty()) {
            if (open_.back().has_child)
                put(",", 1);
            open_.back().has_child = true;
        }
        const Node &n = lines[i];
        line(n.text, n.len);
        if (!opens(n))
            return;
        const Node &c = lines[n.close];
        open_.push_back(Open{identity(i), std::string(c.text, c.len), false});
        const size_t depth = open_.size();
        for (size_t ch : n.children) {
            close_to(depth);
            self(ch, self);
        }
    };
    /* Merges node i into the open node at `depth`, which it is the same node as. */
    auto merge = [&](size_t i, size_t depth, auto &&self) -> void {
        const std::vector<size_t> &ch = lines[i].children;
        size_t from = 0;
        if (depth + 1 < open_.size()) {
            for (size_t k = 0; k < ch.size(); ++k) {
                if (identity(ch[k]) == open_[depth + 1].identity && opens(lines[ch[k]])) {
                    /* What comes before the open child was printed with it by an earlier batch. */
                    self(ch[k], depth + 1, self);
                    from = k + 1;
                    break;
                }
            }
        }
        for (size_t k = from; k < ch.size(); ++k) {
            close_to(depth + 1);
            print_open(ch[k], print_open);
        }
    };
    if (open_.empty())
        print_open(0, print_open);
    else
        merge(0, 0, merge);
    return !write_error_;
}

bool JsonSplice::finish()
{
    if (!started_) {
        put("{}\n", 3);
    } else {
        while (!open_.empty()) {
            line(open_.back().closer.data(), open_.back().closer.size());
            open_.pop_back();
        }
        put("\n", 1);
    }
    return !write_error_ && fflush(out_) == 0;
}

}  // namespace ocni::yang
