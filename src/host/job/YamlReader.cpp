#include "job/YamlReader.h"

#include "base/Escaping.h"
#include "base/Quantities.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <fmt/format.h>
#include <fstream>
#include <map>
#include <optional>
#include <sstream>
#include <sys/stat.h>
#include <unordered_map>
#include <yaml-cpp/eventhandler.h>
#include <yaml-cpp/exceptions.h>
#include <yaml-cpp/parser.h>
#include <yaml.h>

namespace host {

namespace {

// Far larger than job files are; a data file given by mistake is usually larger still.
constexpr long long largestFile = 4000000;
// The library limits the depth of brackets itself, but does not count aliases.
constexpr int mostLevels = 500;

/// Builds the tree from the parser's events, since a finished tree of the library does not
/// distinguish an alias from the value it stands for.
class TreeBuilder : public YAML::EventHandler
{
public:
    TreeBuilder(std::string name, Diagnostics& list) : source(std::move(name)), diagnostics(list) {}

    YamlValue root;

    void OnDocumentStart(const YAML::Mark&) override {}
    void OnDocumentEnd() override {}

    void OnNull(const YAML::Mark& mark, YAML::anchor_t anchor) override
    {
        add(newNode(YamlNode::Kind::null, mark), anchor);
    }

    void OnAlias(const YAML::Mark& mark, YAML::anchor_t anchor) override
    {
        const auto known = anchors.find(anchor);
        if (known == anchors.end()) {
            diagnostics.error(placeOf(mark), "this alias is part of the value that it refers to");
            add(newNode(YamlNode::Kind::null, mark), 0);
            return;
        }
        place(known->second, placeOf(mark));
    }

    void OnScalar(const YAML::Mark& mark, const std::string& tag, YAML::anchor_t anchor,
                  const std::string& value) override
    {
        const std::shared_ptr<YamlNode> node = newNode(YamlNode::Kind::scalar, mark);
        // Escape sequences can make bytes that the file itself must not contain. The rest of the
        // text is dropped: C functions end at a NUL, and texts elsewhere must be UTF-8.
        const std::size_t good = utf8Prefix(value);
        node->text = value.substr(0, good);
        if (good < value.size())
            diagnostics.error(node->place, "an escape sequence in this text gives a NUL or a byte "
                                           "that is not UTF-8; write the character itself");
        node->isQuoted = tag == "!" || tag == "tag:yaml.org,2002:str";
        if (!node->isQuoted)
            refuseTag(mark, tag);
        add(node, anchor);
    }

    void OnSequenceStart(const YAML::Mark& mark, const std::string& tag, YAML::anchor_t anchor,
                         YAML::EmitterStyle::value) override
    {
        open(YamlNode::Kind::list, mark, tag, anchor);
    }
    void OnSequenceEnd() override { close(); }

    void OnMapStart(const YAML::Mark& mark, const std::string& tag, YAML::anchor_t anchor,
                    YAML::EmitterStyle::value) override
    {
        open(YamlNode::Kind::map, mark, tag, anchor);
    }
    void OnMapEnd() override { close(); }

private:
    struct Open
    {
        std::shared_ptr<YamlNode> node;
        YAML::anchor_t anchor = 0;
        bool hasKey = false; // of a map: the next node is the value of `key`
        bool dropValue = false;
        YamlEntry key;
        std::unordered_map<std::string, int> lines; // of the keys so far
    };

    Place placeOf(const YAML::Mark& mark) const { return {source, mark.line + 1, mark.column + 1}; }

    std::shared_ptr<YamlNode> newNode(YamlNode::Kind kind, const YAML::Mark& mark) const
    {
        auto node = std::make_shared<YamlNode>();
        node->kind = kind;
        node->place = placeOf(mark);
        return node;
    }

    void refuseTag(const YAML::Mark& mark, const std::string& tag)
    {
        if (!tag.empty() && tag != "?" && tag != "!")
            diagnostics.error(placeOf(mark), "tags are not supported; remove " + quote(tag));
    }

    void open(YamlNode::Kind kind, const YAML::Mark& mark, const std::string& tag,
              YAML::anchor_t anchor)
    {
        refuseTag(mark, tag);
        stack.push_back({newNode(kind, mark), anchor, false, false, {}, {}});
    }

    void close()
    {
        const Open done = std::move(stack.back());
        stack.pop_back();
        add(done.node, done.anchor);
    }

    void add(const std::shared_ptr<YamlNode>& node, YAML::anchor_t anchor)
    {
        if (anchor != 0)
            anchors[anchor] = node;
        place(node, node->place);
    }

    // Puts a complete node where the document is open. `at`: where it stands there.
    void place(YamlValue node, const Place& at)
    {
        if (stack.empty()) {
            root = node;
            return;
        }
        if (node->levels >= mostLevels) {
            diagnostics.error(at,
                              fmt::format("this is nested more than {} levels deep", mostLevels));
            auto nothing = std::make_shared<YamlNode>();
            nothing->place = at;
            node = nothing;
        }
        Open& parent = stack.back();
        parent.node->levels = std::max(parent.node->levels, node->levels + 1);
        if (parent.node->isList()) {
            parent.node->items.push_back(node);
        } else if (parent.hasKey) {
            parent.hasKey = false;
            parent.key.value = node;
            if (!parent.dropValue)
                parent.node->entries.push_back(parent.key);
        } else {
            takeKey(parent, node, at);
        }
    }

    void takeKey(Open& map, const YamlValue& node, const Place& at)
    {
        map.hasKey = true;
        map.dropValue = true;
        map.key = {node->text, at, nullptr};
        if (!node->isScalar()) {
            diagnostics.error(at, "a key must be a name, not " + node->description());
        } else if (node->text == "<<" && !node->isQuoted) {
            diagnostics.error(at, "merge keys (\"<<\") are not supported; write the keys out");
        } else if (const auto [former, isNew] = map.lines.emplace(node->text, at.line); !isNew) {
            diagnostics.error(at,
                              fmt::format("key {} is already given in line {}; remove one of them",
                                          quote(node->text), former->second));
        } else {
            map.dropValue = false;
        }
    }

    std::string source;
    Diagnostics& diagnostics;
    std::vector<Open> stack;
    std::map<YAML::anchor_t, YamlValue> anchors;
};

/// Finds out whether there is another document.
class DocumentFinder : public YAML::EventHandler
{
public:
    bool found = false;
    YAML::Mark start;

    void OnDocumentStart(const YAML::Mark& mark) override
    {
        if (!found)
            start = mark;
        found = true;
    }
    void OnDocumentEnd() override {}
    void OnNull(const YAML::Mark&, YAML::anchor_t) override {}
    void OnAlias(const YAML::Mark&, YAML::anchor_t) override {}
    void OnScalar(const YAML::Mark&, const std::string&, YAML::anchor_t,
                  const std::string&) override
    {
    }
    void OnSequenceStart(const YAML::Mark&, const std::string&, YAML::anchor_t,
                         YAML::EmitterStyle::value) override
    {
    }
    void OnSequenceEnd() override {}
    void OnMapStart(const YAML::Mark&, const std::string&, YAML::anchor_t,
                    YAML::EmitterStyle::value) override
    {
    }
    void OnMapEnd() override {}
};

/// Passes the events of a faster parser on to a TreeBuilder, as long as both parsers agree on what
/// they mean. What one may read differently from the other ends it.
class SimpleEvents
{
public:
    explicit SimpleEvents(const std::string& text)
    {
        isGood = yaml_parser_initialize(&parser) != 0;
        if (isGood)
            yaml_parser_set_input_string(
                &parser, reinterpret_cast<const unsigned char*>(text.data()), text.size());
    }
    ~SimpleEvents() { yaml_parser_delete(&parser); }
    SimpleEvents(const SimpleEvents&) = delete;
    SimpleEvents& operator=(const SimpleEvents&) = delete;

    /// Whether the whole text is a document that `tree` has got now.
    bool build(TreeBuilder& tree)
    {
        for (bool isEnd = false; isGood && !isEnd;) {
            yaml_event_t event;
            if (yaml_parser_parse(&parser, &event) == 0)
                return false;
            isGood = pass(event, tree);
            isEnd = event.type == YAML_STREAM_END_EVENT;
            yaml_event_delete(&event);
        }
        return isGood && documents == 1;
    }

private:
    bool pass(const yaml_event_t& event, TreeBuilder& tree)
    {
        YAML::Mark mark;
        mark.line = static_cast<int>(event.start_mark.line);
        mark.column = static_cast<int>(event.start_mark.column);
        switch (event.type) {
        case YAML_DOCUMENT_START_EVENT:
            ++documents;
            return event.data.document_start.implicit != 0;
        case YAML_DOCUMENT_END_EVENT:
            return event.data.document_end.implicit != 0;
        case YAML_SCALAR_EVENT:
            return passScalar(event, mark, tree);
        case YAML_SEQUENCE_START_EVENT:
            tree.OnSequenceStart(mark, "?", 0, YAML::EmitterStyle::Default);
            return event.data.sequence_start.anchor == nullptr &&
                   event.data.sequence_start.tag == nullptr;
        case YAML_MAPPING_START_EVENT:
            tree.OnMapStart(mark, "?", 0, YAML::EmitterStyle::Default);
            return event.data.mapping_start.anchor == nullptr &&
                   event.data.mapping_start.tag == nullptr;
        case YAML_SEQUENCE_END_EVENT:
            tree.OnSequenceEnd();
            return true;
        case YAML_MAPPING_END_EVENT:
            tree.OnMapEnd();
            return true;
        case YAML_ALIAS_EVENT:
            return false;
        default: // begin and end of the stream
            return true;
        }
    }

    static bool passScalar(const yaml_event_t& event, const YAML::Mark& mark, TreeBuilder& tree)
    {
        const auto& scalar = event.data.scalar;
        const std::string text(reinterpret_cast<const char*>(scalar.value), scalar.length);
        const bool isPlain = scalar.style == YAML_PLAIN_SCALAR_STYLE;
        const bool isBlock =
            scalar.style == YAML_LITERAL_SCALAR_STYLE || scalar.style == YAML_FOLDED_SCALAR_STYLE;
        const bool isNothing =
            text.empty() || text == "~" || text == "null" || text == "Null" || text == "NULL";
        const bool isBroken = !isPlain && !isBlock && event.start_mark.line != event.end_mark.line;
        if (isBroken || scalar.anchor != nullptr || scalar.tag != nullptr ||
            (isPlain && isNothing) || (isBlock && text.empty()))
            return false;
        tree.OnScalar(mark, isPlain ? "?" : "!", 0, text);
        return true;
    }

    yaml_parser_t parser{};
    bool isGood = false;
    int documents = 0;
};

// One of the parsers counts bytes in a line, the other characters; tabs, carriage returns, question
// marks and the line feeds that a block text keeps at its end are treated differently in places.
bool isSimpleText(const std::string& text)
{
    return std::all_of(text.begin(), text.end(),
                       [](char c) { return c == '\n' || (c >= ' ' && c <= '~' && c != '?'); }) &&
           text.find(">+") == std::string::npos && text.find("|+") == std::string::npos;
}

// The place of the byte number `offset` of `text`.
Place placeOfByte(const std::string& text, std::size_t offset, const std::string& source)
{
    Place place{source, 1, 1};
    for (std::size_t i = 0; i < offset; ++i) {
        place.column = text[i] == '\n' ? 1 : place.column + 1;
        place.line += text[i] == '\n' ? 1 : 0;
    }
    return place;
}

// The tab in the indentation of the line (from 1), or of the one before it, where the parser may
// not have noticed it; nothing where there is none.
std::optional<Place> tabBefore(const std::string& text, int line, const std::string& source)
{
    std::istringstream stream(text);
    std::optional<Place> found;
    std::string content;
    for (int number = 1; number <= line && std::getline(stream, content); ++number) {
        const std::size_t tab = content.find_first_not_of(' ');
        if (number + 1 >= line && tab != std::string::npos && content[tab] == '\t' &&
            content.find_first_not_of(" \t") != std::string::npos)
            found = Place{source, number, static_cast<int>(tab) + 1};
    }
    return found;
}

std::shared_ptr<YamlNode> withoutLine(const YamlValue& value)
{
    auto copy = std::make_shared<YamlNode>(*value);
    copy->place.line = copy->place.column = 0;
    return copy;
}

// Without line numbers: a word of the command line has none. Nested lists are not copied: they are
// not valid values, and aliases can make any number of them.
YamlValue withoutLines(const YamlValue& value)
{
    const std::shared_ptr<YamlNode> copy = withoutLine(value);
    for (YamlValue& item : copy->items)
        item = withoutLine(item);
    return copy;
}

bool readBytes(const std::string& path, std::string& bytes, Diagnostics& diagnostics)
{
    const Place place{path, 0, 0};
    struct stat status;
    if (stat(path.c_str(), &status) != 0) {
        diagnostics.error(place, std::string("cannot be read: ") + std::strerror(errno));
        return false;
    }
    if (S_ISDIR(status.st_mode)) {
        diagnostics.error(place, "is a directory; a file is needed");
        return false;
    }
    if (status.st_size > largestFile) {
        diagnostics.error(
            place, fmt::format("is larger than {}; is it a data file?", formatBytes(largestFile)));
        return false;
    }
    std::ifstream file(path, std::ios::binary);
    std::ostringstream content;
    content << file.rdbuf();
    if (!file) {
        diagnostics.error(place, std::string("cannot be read: ") + std::strerror(errno));
        return false;
    }
    bytes = content.str();
    return true;
}

} // namespace

const YamlEntry* YamlNode::find(const std::string& key) const
{
    for (const YamlEntry& entry : entries) {
        if (entry.key == key)
            return &entry;
    }
    return nullptr;
}

std::string YamlNode::description() const
{
    switch (kind) {
    case Kind::scalar:
        return quote(text);
    case Kind::list:
        return "a list";
    case Kind::map:
        return "a group of keys";
    default:
        return "nothing";
    }
}

YamlValue readYaml(const std::string& text, const std::string& source, Diagnostics& diagnostics)
{
    if (const std::size_t good = utf8Prefix(text); good < text.size()) {
        diagnostics.error(placeOfByte(text, good, source),
                          "this is not UTF-8 text; is it a data file?");
        return nullptr;
    }
    std::istringstream stream(text);
    TreeBuilder builder(source, diagnostics);
    try {
        YAML::Parser parser(stream);
        if (!parser.HandleNextDocument(builder) || builder.root == nullptr) {
            diagnostics.error({source, 0, 0}, "is empty");
            return nullptr;
        }
        DocumentFinder second;
        if (parser.HandleNextDocument(second)) {
            diagnostics.error({source, second.start.line + 1, second.start.column + 1},
                              "a second document begins here; only one is allowed");
            return nullptr;
        }
    } catch (const YAML::Exception& error) {
        const std::optional<Place> tab =
            error.mark.is_null() ? std::nullopt : tabBefore(text, error.mark.line + 1, source);
        if (tab) {
            diagnostics.error(*tab, "this line is indented with a tab; YAML allows only blanks");
            return nullptr;
        }
        const Place place = error.mark.is_null()
                                ? Place{source, 0, 0}
                                : Place{source, error.mark.line + 1, error.mark.column + 1};
        diagnostics.error(place, "this is not valid YAML: " + escaped(error.msg));
        return nullptr;
    }
    return builder.root;
}

YamlValue readSimpleYaml(const std::string& text, const std::string& source)
{
    if (!isSimpleText(text))
        return nullptr;
    Diagnostics found;
    TreeBuilder builder(source, found);
    if (!SimpleEvents(text).build(builder) || found.errors() > 0 || found.warnings() > 0 ||
        builder.root == nullptr || !builder.root->isMap())
        return nullptr;
    return builder.root;
}

YamlValue readSimpleYamlFile(const std::string& path)
{
    Diagnostics none;
    std::string bytes;
    return readBytes(path, bytes, none) ? readSimpleYaml(bytes, path) : nullptr;
}

YamlValue readYamlFile(const std::string& path, Diagnostics& diagnostics)
{
    std::string bytes;
    if (!readBytes(path, bytes, diagnostics))
        return nullptr;
    return readYaml(bytes, path, diagnostics);
}

YamlValue readYamlValue(const std::string& text, const std::string& source,
                        Diagnostics& diagnostics)
{
    if (!text.empty() && text.front() == '[') {
        const YamlValue list = readYaml(text, source, diagnostics);
        return list != nullptr ? withoutLines(list) : nullptr;
    }
    auto node = std::make_shared<YamlNode>();
    node->kind = text.empty() ? YamlNode::Kind::null : YamlNode::Kind::scalar;
    node->place = {source, 0, 0};
    node->text = text;
    return node;
}

} // namespace host
