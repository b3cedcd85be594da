#pragma once

#include <functional>
#include <string>

class QWidget;

namespace Kestrion {

/// The question a window asks before it throws away unsaved work: "Save", "Discard" or
/// "Cancel", in a modal message box. Tests answer it with a hook instead of a user.
/// GUI thread only.
class SaveChangesQuestion {
public:
    enum class Answer { Save, Discard, Cancel };
    /// Answers the question instead of the user; gets the question's text.
    using Hook = std::function<Answer(const std::string& text)>;

    /// Asks whether to save `what` ("the workspace data/workspaces/tracking.kws") before `action`
    /// ("quitting").
    static Answer ask(QWidget* parent, const std::string& what, const std::string& action);

    /// Sets a hook for the lifetime of the object and restores the previous one.
    class ScopedHook {
    public:
        explicit ScopedHook(Hook hook);
        ~ScopedHook();
        ScopedHook(const ScopedHook&) = delete;
        ScopedHook& operator=(const ScopedHook&) = delete;

    private:
        Hook m_previous;
    };

private:
    static Hook& hook();
};

} // namespace Kestrion
