// SPDX-FileCopyrightText: The kx_Updater authors
// SPDX-License-Identifier: MIT
#pragma once

#include "engine/q_UpdaterEngine.h"
#include "model/PicoJFactory.h"
#include "support/EngineFixture.h"

#include <picojson.h>

#include <functional>
#include <string>
#include <utility>
#include <vector>

/// What happened to the objects of a CountingObject's class, oldest first: "new 1", "initialize 1",
/// "delete 1" with the number of the object.
using Events = std::vector<std::string>;

/// A class of the test's own: tells what is done with its objects. The prototype is number 0.
class CountingObject final : public IPicoJ
{
public:
    /// Plays Initialize; gets how often the object was initialised before, and the JSON object.
    using Script = std::function<int(int, picojson::object&)>;

    CountingObject(std::string type, Events& events, Script script = {})
        : m_type(std::move(type)), m_events(&events), m_script(std::move(script))
    {
    }
    ~CountingObject() override { Note("delete"); }

    [[nodiscard]] const char* ClassType() const override { return m_type.c_str(); }

    [[nodiscard]] IPicoJ* New() const override
    {
        auto* const object = new CountingObject(m_type, *m_events, m_script);
        object->m_number = ++m_made;
        object->Note("new");
        return object;
    }

    [[nodiscard]] int Initialize(picojson::object& obj) override
    {
        Note("initialize");
        const int round = m_rounds++;
        return m_script ? m_script(round, obj) : 0;
    }

private:
    void Note(const char* what) { m_events->push_back(what + (" " + std::to_string(m_number))); }

    std::string m_type;
    Events* m_events;
    Script m_script;
    int m_number = 0;
    int m_rounds = 0;
    mutable int m_made = 0;
};

/// An engine whose table of project classes belongs to the test: the thirteen classes, and what
/// the test adds. The table is destroyed with the fixture.
class OwnTableFixture : public EngineFixture
{
protected:
    OwnTableFixture()
    {
        m_table.RegisterProjectClasses();
        q_UpdaterEngine::PicoJTbl = &m_table;
    }
    ~OwnTableFixture() override { q_UpdaterEngine::PicoJTbl = m_saved; }

    static constexpr const char* kCounted = "Test.Counted, Test";

    /// Registers a CountingObject under kCounted.
    void RegisterCounted(const CountingObject::Script& script = {})
    {
        m_table.AddObject(new CountingObject(kCounted, m_events, script));
    }

    [[nodiscard]] static picojson::object Counted()
    {
        return {{"$type", picojson::value(kCounted)}};
    }

    /// How often @p what happened, whatever the object.
    [[nodiscard]] int CountOf(const std::string& what) const
    {
        int count = 0;
        for (const std::string& event : m_events) {
            count += event.compare(0, what.size(), what) == 0 ? 1 : 0;
        }
        return count;
    }

    Events m_events; ///< outlives the table, whose prototypes write to it
    PicoJFactory m_table;

private:
    PicoJFactory* m_saved = q_UpdaterEngine::PicoJTbl;
};
