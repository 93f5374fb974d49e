#pragma once

#include <QString>
#include <QStringList>

namespace quillane
{

// A modal alert: a title, an informative text, one or two buttons (the first takes the Return
// key) and, optionally, the platform's "do not show this message again" check box.
struct AlertRequest {
    QString title;
    QString informativeText;
    QStringList buttons;
    bool showsSuppressionButton = false;
    // A key that presses the second button besides a click ("d" for Delete); empty for none.
    QString secondButtonKey;
    // The index of the button that backs out: Escape and closing the window answer it, so that
    // neither ever confirms what the alert asks about. An alert of one button backs out with it.
    int cancelButton = 0;
    // The index of the button whose action cannot be undone (Delete, Uninstall), or -1.
    int destructiveButton = -1;
};

struct AlertAnswer {
    static constexpr int firstButton = 1000;
    static constexpr int secondButton = 1001;

    int button = firstButton;
    bool suppressed = false;
};

// Shows alerts and waits for the answer. Called on the main thread.
class Alerts
{
public:
    virtual ~Alerts() = default;
    virtual AlertAnswer runModal(const AlertRequest& request) = 0;
};

} // namespace quillane
