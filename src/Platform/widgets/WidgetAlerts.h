#pragma once

#include "Platform/Alerts.h"

namespace quillane
{

// Alerts as Qt message boxes, modal to the whole application.
class WidgetAlerts final : public Alerts
{
public:
    AlertAnswer runModal(const AlertRequest& request) override;
};

} // namespace quillane
