// SPDX-FileCopyrightText: The kx_Updater authors
// SPDX-License-Identifier: MIT
#include "format/Json.h"

#include <picojson.h>

#include <algorithm>
#include <array>
#include <exception>

namespace kx::format
{

namespace
{

using Input = picojson::input<const char*>;

/// Turns offsets into positions; asked in growing order, it reads the text once.
class Positions
{
public:
    explicit Positions(std::string_view text) : m_text(text) {}

    TextPosition At(std::size_t offset)
    {
        for (; m_offset < offset && m_offset < m_text.size(); ++m_offset) {
            if (m_text[m_offset] == '\n') {
                ++m_place.line;
                m_place.column = 1;
            } else {
                ++m_place.column;
            }
        }
        return m_place;
    }

private:
    std::string_view m_text;
    std::size_t m_offset = 0;
    TextPosition m_place;
};

/// What the JSON library calls while it reads; the functions' names are the library's.
class Builder
{
public:
    Builder(JsonNode& node, const char* begin, Positions& positions, std::size_t depth)
        : m_node(node), m_begin(begin), m_positions(positions), m_depth(depth)
    {
    }

    bool set_null() { return true; } // NOLINT(*-to-static): the library asks the object

    bool set_bool(bool flag)
    {
        m_node.kind = JsonNode::Kind::kBool;
        m_node.flag = flag;
        return true;
    }

    bool set_number(double /*number*/)
    {
        m_node.kind = JsonNode::Kind::kNumber;
        return true;
    }

    bool parse_string(Input& in)
    {
        m_node.kind = JsonNode::Kind::kString;
        return picojson::_parse_string(m_node.text, in);
    }

    bool parse_array_start()
    {
        m_node.kind = JsonNode::Kind::kArray;
        return m_depth < kDeepestJson;
    }

    bool parse_array_item(Input& in, std::size_t /*index*/)
    {
        return ParseInto(m_node.elements.emplace_back(), in);
    }

    static bool parse_array_stop(std::size_t /*count*/) { return true; }

    bool parse_object_start()
    {
        m_node.kind = JsonNode::Kind::kObject;
        return m_depth < kDeepestJson;
    }

    bool parse_object_item(Input& in, const std::string& key)
    {
        return ParseInto(m_node.members.emplace_back(key, JsonNode()).second, in);
    }

    static bool parse_object_stop() { return true; }

    bool ParseInto(JsonNode& node, Input& in)
    {
        in.skip_ws();
        node.position = m_positions.At(static_cast<std::size_t>(in.cur() - m_begin));
        Builder builder(node, m_begin, m_positions, m_depth + 1);
        return picojson::_parse(builder, in);
    }

private:
    JsonNode& m_node;
    const char* m_begin;
    Positions& m_positions;
    std::size_t m_depth;
};

} // namespace

const JsonNode* JsonNode::Member(std::string_view key) const
{
    const auto found = std::find_if(members.rbegin(), members.rend(),
                                    [key](const auto& member) { return member.first == key; });
    return found == members.rend() ? nullptr : &found->second;
}

const std::string& JsonNode::TextOf(std::string_view key) const
{
    static const std::string kNone;
    const JsonNode* const member = Member(key);
    return member != nullptr && member->IsString() ? member->text : kNone;
}

const char* JsonNode::KindName() const
{
    constexpr std::array<const char*, 6> kNames = {"null",   "a flag",   "a number",
                                                   "a text", "an array", "an object"};
    return kNames[static_cast<std::size_t>(kind)];
}

JsonNode ParseJson(std::string_view text, std::size_t& end)
{
    Positions positions(text);
    Input in(text.data(), text.data() + text.size());
    JsonNode above;
    JsonNode root;
    bool isRead = false;
    std::string why = "is not JSON from here on";
    try {
        isRead = Builder(above, text.data(), positions, 0).ParseInto(root, in);
    } catch (const std::exception& error) {
        why = std::string("cannot be read: ") + error.what();
    }
    end = static_cast<std::size_t>(in.cur() - text.data());
    if (!isRead) {
        throw JsonError{why, positions.At(end)};
    }
    return root;
}

} // namespace kx::format
