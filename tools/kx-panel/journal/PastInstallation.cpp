// SPDX-FileCopyrightText: The kx_Updater authors
// SPDX-License-Identifier: MIT
#include "journal/PastInstallation.h"

#include <picojson.h>

#include <array>
#include <utility>

namespace kx::guard
{

namespace
{

using Object = picojson::object;

constexpr std::array<const char*, 6> kOutcomes = {"installed", "refused", "failed",
                                                  "error",     "stopped", "interrupted"};
constexpr std::array<const char*, 2> kSpeakers = {"kx-panel", "updater"};

picojson::value Number(double number)
{
    return picojson::value(number);
}

picojson::value Text(const std::string& text)
{
    return picojson::value(text);
}

std::string LineOf(Object object)
{
    return picojson::value(std::move(object)).serialize() + "\n";
}

/// Reads members of an object; what is missing or of another kind is noted.
class Members
{
public:
    explicit Members(const picojson::value& value)
        : m_object(value.is<Object>() ? &value.get<Object>() : nullptr),
          m_isFine(m_object != nullptr)
    {
    }

    [[nodiscard]] bool IsFine() const { return m_isFine; }
    [[nodiscard]] bool Has(const char* key) const { return Find(key) != nullptr; }

    std::string TextOf(const char* key) { return Of<std::string>(key); }

    /// A whole number that a double holds exactly.
    std::int64_t NumberOf(const char* key)
    {
        constexpr double kLargest = 9007199254740992.0;
        const auto number = Of<double>(key);
        if (!(number >= -kLargest && number <= kLargest)) {
            m_isFine = false;
            return 0;
        }
        return static_cast<std::int64_t>(number);
    }

    std::uint64_t CountOf(const char* key)
    {
        const std::int64_t number = NumberOf(key);
        m_isFine = m_isFine && number >= 0;
        return number < 0 ? 0 : static_cast<std::uint64_t>(number);
    }

    picojson::array ListOf(const char* key) { return Of<picojson::array>(key); }

    /// The index of the member's word.
    template <std::size_t count>
    std::size_t WordOf(const char* key, const std::array<const char*, count>& words)
    {
        const std::string word = TextOf(key);
        for (std::size_t i = 0; i < count; ++i) {
            if (word == words.at(i)) {
                return i;
            }
        }
        m_isFine = false;
        return 0;
    }

private:
    [[nodiscard]] const picojson::value* Find(const char* key) const
    {
        const auto found = m_object == nullptr ? Object::const_iterator() : m_object->find(key);
        return m_object == nullptr || found == m_object->end() ? nullptr : &found->second;
    }

    template <class Kind>
    Kind Of(const char* key)
    {
        const picojson::value* const value = Find(key);
        if (value == nullptr || !value->is<Kind>()) {
            m_isFine = false;
            return {};
        }
        return value->get<Kind>();
    }

    const Object* m_object;
    bool m_isFine;
};

picojson::value ReasonValue(const PastReason& reason)
{
    return picojson::value(Object{{"reason", Text(reason.word)},
                                  {"what", Text(reason.what)},
                                  {"remedy", Text(reason.remedy)},
                                  {"what-ja", Text(reason.whatJapanese)},
                                  {"remedy-ja", Text(reason.remedyJapanese)}});
}

/// @return false when it is damaged
bool TakeReasons(const picojson::array& values, PastInstallation& past)
{
    for (const picojson::value& value : values) {
        Members members(value);
        past.reasons.push_back({members.TextOf("reason"), members.TextOf("what"),
                                members.TextOf("remedy"), members.TextOf("what-ja"),
                                members.TextOf("remedy-ja")});
        if (!members.IsFine()) {
            return false;
        }
    }
    return true;
}

/// Takes one line of the file.
/// @return false when it is damaged
bool TakeLine(const picojson::value& value, PastInstallation& past)
{
    Members members(value);
    if (members.Has("id")) {
        past.id = members.CountOf("id");
        past.began = members.NumberOf("began");
        past.file = members.TextOf("file");
    } else if (members.Has("name")) {
        past.name = members.TextOf("name");
        past.version = members.TextOf("version");
        past.signer = members.TextOf("signer");
        return members.IsFine() && TakeReasons(members.ListOf("reasons"), past) && members.IsFine();
    } else if (members.Has("line")) {
        past.lines.push_back({members.CountOf("ms"), members.TextOf("line")});
    } else if (members.Has("omitted")) {
        past.omittedLines = members.CountOf("omitted");
        past.omittedAt = past.lines.size();
    } else {
        Ending ending;
        ending.outcome = static_cast<Outcome>(members.WordOf("result", kOutcomes));
        ending.status = static_cast<int>(members.CountOf("status"));
        ending.from = static_cast<Speaker>(members.WordOf("from", kSpeakers));
        ending.message = members.TextOf("message");
        past.ending = std::move(ending);
    }
    return members.IsFine();
}

} // namespace

const char* SpeakerWord(Speaker speaker)
{
    return kSpeakers.at(static_cast<std::size_t>(speaker));
}

const char* OutcomeWord(Outcome outcome)
{
    return kOutcomes.at(static_cast<std::size_t>(outcome));
}

std::string BeginningText(std::uint64_t id, std::int64_t began, const std::string& file)
{
    return LineOf({{"id", Number(static_cast<double>(id))},
                   {"began", Number(static_cast<double>(began))},
                   {"file", Text(file)}});
}

std::string FactsText(const PastInstallation& facts)
{
    picojson::array reasons;
    for (const PastReason& reason : facts.reasons) {
        reasons.push_back(ReasonValue(reason));
    }
    return LineOf({{"name", Text(facts.name)},
                   {"version", Text(facts.version)},
                   {"signer", Text(facts.signer)},
                   {"reasons", picojson::value(std::move(reasons))}});
}

std::string LineText(const PastLine& line)
{
    return LineOf(
        {{"ms", Number(static_cast<double>(line.milliseconds))}, {"line", Text(line.text)}});
}

std::string OmittedText(std::uint64_t lines)
{
    return LineOf({{"omitted", Number(static_cast<double>(lines))}});
}

std::string EndingText(const Ending& ending)
{
    return LineOf({{"result", Text(OutcomeWord(ending.outcome))},
                   {"status", Number(ending.status)},
                   {"from", Text(SpeakerWord(ending.from))},
                   {"message", Text(ending.message)}});
}

std::optional<PastInstallation> PastInstallationOf(std::string_view bytes)
{
    PastInstallation past;
    bool isFirst = true;
    for (std::size_t at = 0;;) {
        const std::size_t end = bytes.find('\n', at);
        if (end == std::string_view::npos) {
            // Without its first line there is no entry.
            return isFirst ? std::nullopt : std::optional(std::move(past));
        }
        picojson::value value;
        const std::string line(bytes.substr(at, end - at));
        if (!picojson::parse(value, line).empty() || past.ending.has_value() ||
            !TakeLine(value, past) || (isFirst && past.id == 0)) {
            return {};
        }
        isFirst = false;
        at = end + 1;
    }
}

} // namespace kx::guard
