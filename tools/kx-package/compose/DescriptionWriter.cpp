// SPDX-FileCopyrightText: The kx_Updater authors
// SPDX-License-Identifier: MIT
#include "compose/DescriptionWriter.h"

#include "io/Hex.h"
#include "model/DB_FunctionDatas.h"
#include "model/DB_Hardware.h"
#include "model/DB_KxUserProject.h"
#include "model/DB_StepSets.h"

#include <map>
#include <stdexcept>
#include <string_view>
#include <variant>
#include <vector>

namespace kx::tool
{

namespace
{

constexpr const char* kTypeKey = "$type";

/// Collects all classes that can stand below a class, by their type string.
void CollectClasses(const ClassInfo* info, std::map<std::string_view, const ClassInfo*>& classes)
{
    if (info == nullptr || !classes.emplace(info->type, info).second) {
        return;
    }
    for (const FieldInfo& field : info->fields) {
        CollectClasses(field.expected, classes);
    }
    for (const ClassInfo* const element : info->elements) {
        CollectClasses(element, classes);
    }
}

const ClassInfo& ClassOf(const IPicoJ& object)
{
    static const auto kClasses = [] {
        std::map<std::string_view, const ClassInfo*> classes;
        CollectClasses(&DB_KxUserProject::kInfo, classes);
        return classes;
    }();
    const auto found = kClasses.find(object.ClassType());
    if (found == kClasses.end()) {
        throw std::invalid_argument(std::string(object.ClassType()) + " is no class of packages");
    }
    return *found->second;
}

template <class List>
bool AppendElements(const IPicoJ& object, std::vector<const IPicoJ*>& elements)
{
    const auto* const list = dynamic_cast<const List*>(&object);
    if (list == nullptr) {
        return false;
    }
    for (int i = 0; i < list->count; ++i) {
        elements.push_back(list->ElementAt(i));
    }
    return true;
}

std::vector<const IPicoJ*> ElementsOf(const IPicoJ& object)
{
    std::vector<const IPicoJ*> elements;
    if (!AppendElements<DB_StepSets>(object, elements) &&
        !AppendElements<DB_CopyFunctionDatas>(object, elements) &&
        !AppendElements<DB_HardwareConfigs>(object, elements) &&
        !AppendElements<DB_HardwareItems>(object, elements)) {
        throw std::invalid_argument(std::string(object.ClassType()) + " is no list");
    }
    return elements;
}

/// Writes one tree of objects. Its depth is the format's own.
class Writer
{
public:
    [[nodiscard]] std::string& Text() { return m_text; }

    void Write(const IPicoJ& object)
    {
        const ClassInfo& info = ClassOf(object);
        m_text += '{';
        ++m_depth;
        BeginLine();
        WriteString(kTypeKey);
        m_text += ": ";
        WriteString(info.type);
        if (info.IsList()) {
            BeginField(kValuesKey);
            WriteElements(ElementsOf(object));
        } else {
            WriteFields(object, info);
        }
        --m_depth;
        BeginLine();
        m_text += '}';
    }

private:
    void BeginLine()
    {
        m_text += '\n';
        m_text.append(2 * m_depth, ' ');
    }

    void BeginField(const char* key)
    {
        m_text += ',';
        BeginLine();
        WriteString(key);
        m_text += ": ";
    }

    void WriteFields(const IPicoJ& object, const ClassInfo& info)
    {
        if (info.base != nullptr) {
            WriteFields(object, *info.base);
        }
        for (const FieldInfo& field : info.fields) {
            BeginField(field.key);
            std::visit([this, &object](auto member) { WriteValue(object.*member); }, field.member);
        }
    }

    void WriteElements(const std::vector<const IPicoJ*>& elements)
    {
        m_text += '[';
        ++m_depth;
        for (std::size_t i = 0; i < elements.size(); ++i) {
            m_text += i == 0 ? "" : ",";
            BeginLine();
            Write(*elements[i]);
        }
        --m_depth;
        if (!elements.empty()) {
            BeginLine();
        }
        m_text += ']';
    }

    void WriteValue(const std::string& text) { WriteString(text); }
    void WriteValue(bool flag) { m_text += flag ? "true" : "false"; }
    void WriteValue(const IPicoJ* child)
    {
        if (child == nullptr) {
            throw std::invalid_argument("a child object is missing");
        }
        Write(*child);
    }

    void WriteString(std::string_view text)
    {
        m_text += '"';
        for (const char c : text) {
            WriteCharacter(c);
        }
        m_text += '"';
    }

    void WriteCharacter(char c)
    {
        const auto byte = static_cast<unsigned char>(c);
        if (c == '"' || c == '\\') {
            m_text += '\\';
            m_text += c;
        } else if (c == '\n') {
            m_text += "\\n";
        } else if (c == '\r') {
            m_text += "\\r";
        } else if (c == '\t') {
            m_text += "\\t";
        } else if (byte < 0x20 || byte == 0x7f) {
            m_text += "\\u00" + io::Hex(std::string_view(&c, 1));
        } else {
            m_text += c;
        }
    }

    std::string m_text;
    std::size_t m_depth = 0;
};

} // namespace

std::string WriteObject(const IPicoJ& object)
{
    Writer writer;
    writer.Write(object);
    return writer.Text() + "\n";
}

std::string WriteDescription(const DB_KxUserProject& root)
{
    Writer writer;
    writer.Text() = "\xef\xbb\xbf";
    writer.Write(root);
    return writer.Text() + "\n";
}

} // namespace kx::tool
