// SPDX-FileCopyrightText: The kx_Updater authors
// SPDX-License-Identifier: MIT
#include "road/Install.h"

#include "confined/Unread.h"
#include "io/Error.h"
#include "io/Interruption.h"
#include "io/Path.h"
#include "io/Text.h"
#include "journal/Baseline.h"
#include "journal/History.h"
#include "road/Installer.h"
#include "road/PackageCopy.h"
#include "road/Remains.h"
#include "road/StepFolder.h"
#include "road/Unpacking.h"
#include "signature/PackageName.h"

#include <csignal>
#include <ctime>
#include <memory>
#include <optional>

namespace kx::guard
{

namespace
{

constexpr int kRefusedStatus = static_cast<int>(io::ExitCode::kProblems);
constexpr int kErrorStatus = static_cast<int>(io::ExitCode::kNoAccess);

/// Tells that kx-panel was asked to end.
class Stopped final : public io::Error
{
public:
    Stopped() : Error(io::ExitCode::kNoAccess, "", "it was asked to end") {}
};

void RefuseToGoOn()
{
    if (io::Interruption::IsAsked()) {
        throw Stopped();
    }
}

/// While one lives, a reader of the output that goes away ends nothing.
class PipesIgnored
{
public:
    PipesIgnored()
    {
        struct sigaction ignore {
        };
        ignore.sa_handler = SIG_IGN;
        static_cast<void>(sigaction(SIGPIPE, &ignore, &m_before));
    }
    PipesIgnored(const PipesIgnored&) = delete;
    PipesIgnored& operator=(const PipesIgnored&) = delete;
    ~PipesIgnored() { static_cast<void>(sigaction(SIGPIPE, &m_before, nullptr)); }

private:
    struct sigaction m_before {
    };
};

Ending ErrorEnding(const io::Error& error)
{
    const bool isProblem = error.Code() == io::ExitCode::kProblems;
    return {Outcome::kError, isProblem ? kRefusedStatus : kErrorStatus, Speaker::kPanel,
            io::Printable(error.Line())};
}

Ending RefusedEnding()
{
    return {Outcome::kRefused, kRefusedStatus, Speaker::kPanel, ""};
}

Ending EndingOf(const InstallerEnd& end)
{
    constexpr int kFirstSignalStatus = 128;
    if (end.signal != 0) {
        return {Outcome::kFailed, kFirstSignalStatus + end.signal, Speaker::kUpdater,
                "the updater was ended by signal " + std::to_string(end.signal)};
    }
    return {end.status == 0 ? Outcome::kInstalled : Outcome::kFailed, end.status, Speaker::kUpdater,
            ""};
}

/// Adds a sentence to what an ending says.
void AddMessage(Ending& ending, const std::string& text)
{
    ending.message += (ending.message.empty() ? "" : "; ") + text;
}

/// One installation.
class Road
{
public:
    Road(const Policy& policy, const RoadPlaces& places, IJudge& judge, IRoadObserver& observer,
         const State& state)
        : m_policy(policy), m_places(places), m_judge(judge), m_observer(observer), m_state(state)
    {
    }

    Installation Run(const std::string& file)
    {
        try {
            m_entry.emplace(m_state.Folder(), m_policy.limits, io::LastPart(file),
                            std::time(nullptr));
            m_result.historyId = m_entry->Id();
        } catch (const io::Error& error) {
            m_unnoted = ErrorEnding(error);
        }
        m_result.ending = Go(file);
        Clear();
        Note();
        return std::move(m_result);
    }

private:
    /// Goes the whole road.
    Ending Go(const std::string& file)
    {
        try {
            if (!LookAt(file)) {
                return RefusedEnding();
            }
            if (m_unnoted.has_value()) {
                return *m_unnoted; // nothing is installed that is not noted
            }
            m_observer.OnStep(RoadStep::kCopying);
            CopyPackage(*m_source, m_state.Folder(), kCopyName, RefuseToGoOn);
            m_source.reset();
            const StateFolder& state = m_state.Folder();
            const DescriptorBytes copy(state.Open(kCopyName), state.Shown(kCopyName));
            return Judge({copy, copy.Number(), io::LastPart(file)});
        } catch (const Unread& unread) {
            m_result.decision.reasons.push_back({ReasonId::kUnread, {unread.what()}});
            return RefusedEnding();
        } catch (const io::Error& error) {
            if (io::Interruption::IsAsked() && !m_wasStarted) {
                return {Outcome::kStopped, kErrorStatus, Speaker::kPanel, Stopped().what()};
            }
            return ErrorEnding(error);
        }
    }

    /// Opens the file, and judges what can be told before it is copied.
    /// @return false when it is refused
    bool LookAt(const std::string& file)
    {
        m_observer.OnStep(RoadStep::kLooking);
        m_source = OpenPackageBytes(file);
        m_result.decision = m_judge.BeforeCopy({*m_source, m_source->Number(), io::LastPart(file)});
        return m_result.decision.IsAccepted();
    }

    /// Judges the copy, and installs it.
    Ending Judge(const OpenPackageFile& copy)
    {
        m_observer.OnStep(RoadStep::kDeciding);
        m_result.decision = m_judge.OfCopy(copy, [this](const std::string& name) {
            return HighestVersion(m_state.Folder(), name);
        });
        if (!m_result.decision.IsAccepted()) {
            return RefusedEnding();
        }
        const std::string& name = m_result.decision.facts.name;
        if (!signature::IsSafePackageName(name)) { // paths are made of it from here on
            m_result.decision.reasons.push_back({ReasonId::kName, {name}});
            return RefusedEnding();
        }
        m_entry->Mask(m_judge.Secrets(copy));
        const StateFolder work = m_state.Folder().FindOrMake(kWorkName);
        const StateFolder folder = work.FindOrMake(name + panel::kUnpackedSuffix);
        m_observer.OnStep(RoadStep::kUnpacking);
        Unpacking unpacking(folder, RefuseToGoOn);
        m_judge.Unpack(copy, unpacking);
        unpacking.Finish();
        // Its room is free for what is installed; nothing of it is needed any more.
        m_state.Folder().Remove(kCopyName);
        return RunUpdater(folder.Path());
    }

    Ending RunUpdater(const std::string& folder)
    {
        StepFolder steps(m_places.stepFolder);
        const io::Descriptor lock = m_state.LockForInstaller();
        const PackageFacts& facts = m_result.decision.facts;
        NoteBegun(m_state.Folder(), {facts.name, facts.version, m_entry->Id()});
        m_isBegun = true;
        RefuseToGoOn();
        m_observer.OnStep(RoadStep::kInstalling);
        const InstallerEnd end = RunInstaller(
            {m_places.updater, folder, lock,
             [this](std::uint64_t milliseconds, std::string_view line) {
                 TakeLine(milliseconds, line);
             },
             [this] {
                 m_observer.OnRemark("asked to end; the installation goes on, and is waited for");
             },
             m_places.patience});
        m_wasStarted = true;
        m_isLeftRunning = end.signal != 0 && end.isSomethingLeft;
        if (m_isLeftRunning) {
            steps.Keep();
        }
        Ending ending = EndingOf(end);
        if (ending.outcome == Outcome::kInstalled) {
            RememberVersion(ending);
        }
        if (end.isSomethingLeft) {
            AddMessage(ending, "programs that it started still run");
        }
        return ending;
    }

    void TakeLine(std::uint64_t milliseconds, std::string_view line)
    {
        const std::string shown = m_entry->Shown(line);
        m_entry->NoteLine(milliseconds, shown);
        m_observer.OnLine(shown);
    }

    void RememberVersion(Ending& ending)
    {
        try {
            const PackageFacts& facts = m_result.decision.facts;
            RaiseVersion(m_state.Folder(), facts.name, facts.version);
        } catch (const io::Error& error) {
            // The next start finds the note of what was begun, and the panel's record.
            m_isVersionOwed = true;
            AddMessage(ending,
                       "its version is noted by the next start: " + io::Printable(error.Line()));
        }
    }

    /// Clears everything, but for what something still runs in.
    void Clear()
    {
        if (m_isLeftRunning) {
            AddMessage(m_result.ending, "what was unpacked is removed when they have ended");
            return;
        }
        try {
            ClearWork(m_state.Folder());
            m_state.ForgetInstaller();
            if (m_isBegun && !m_isVersionOwed) {
                ForgetBegun(m_state.Folder());
            }
        } catch (const io::Error& error) {
            AddMessage(m_result.ending,
                       "what is left is removed by the next start: " + io::Printable(error.Line()));
        }
    }

    void Note()
    {
        if (!m_entry.has_value()) {
            return;
        }
        try {
            m_entry->NoteDecision(m_result.decision);
            m_entry->Finish(m_result.ending);
        } catch (const io::Error& error) {
            AddMessage(m_result.ending, "the history lacks this: " + io::Printable(error.Line()));
        }
    }

    const Policy& m_policy;
    const RoadPlaces& m_places;
    IJudge& m_judge;
    IRoadObserver& m_observer;
    const State& m_state;
    std::optional<HistoryEntry> m_entry;
    std::optional<Ending> m_unnoted; ///< why there is no entry
    std::unique_ptr<DescriptorBytes> m_source;
    Installation m_result;
    bool m_isBegun = false;
    bool m_wasStarted = false;
    bool m_isLeftRunning = false;
    bool m_isVersionOwed = false;
};

} // namespace

RoadPlaces PlacesOf(const Policy& policy)
{
    RoadPlaces places;
    places.state.folder = policy.state;
    places.updater = policy.updater;
    return places;
}

Installation Install(const Policy& policy, const RoadPlaces& places, IJudge& judge,
                     const std::string& file, IRoadObserver& observer)
{
    const PipesIgnored pipes;
    const io::Interruption interruption;
    std::optional<State> state;
    try {
        state.emplace(places.state);
        observer.OnStep(RoadStep::kClearing);
        const std::string found =
            ClearRemains(*state, places.stepFolder, io::RootedFolder(places.root));
        if (!found.empty()) {
            observer.OnRemark(found);
        }
    } catch (const Busy&) {
        throw;
    } catch (const io::Error& error) {
        Installation refused;
        refused.decision.reasons.push_back({ReasonId::kState, {error.Line()}});
        refused.ending = RefusedEnding();
        return refused;
    }
    return Road(policy, places, judge, observer, *state).Run(file);
}

} // namespace kx::guard
