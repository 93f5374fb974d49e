#pragma once

#include "Platform/Alerts.h"

namespace quillane
{

// Alerts as Qt message boxes, modal to the whole application.
class WidgetAlerts final : public Alerts
{
public:
    AlertAnswer runModal(const AlertRequest& request) override;

    // The label of the check box that stops an alert from being shown again.
    static QString suppressionLabel();
};

} // namespace quillane
