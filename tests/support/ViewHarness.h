#pragma once

#include "HelperHarness.h"
#include "ModelHarness.h"
#include "Shell/Updater.h"
#include "Views/ViewServices.h"

#include <memory>

namespace quillane::test
{

// What the views are shown with in tests: the model on real files below a temporary home
// (ModelHarness), the real helper client on a private bus (HelperHarness; start its scripted
// daemon when the test needs one), an update checker whose feed no one serves, and the
// desktop's openers and the application recorded.
struct ViewHarness {
    ViewHarness();

    // Starts the model (its first list is published) and returns the services for a view.
    // Every call gives the same model and helper client.
    ViewServices services();

    ModelHarness model;
    HelperHarness helper;
    RecordingWorkspace workspace;
    RecordingApplication application;
    std::unique_ptr<Updater> updater;
    int settingsOpened = 0;

private:
    XPCClient* m_client = nullptr; // made on the first call of services()
};

// What a screen reader says a control is.
QString spokenName(QWidget* control);

} // namespace quillane::test
