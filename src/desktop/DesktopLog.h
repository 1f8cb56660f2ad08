#pragma once
#include <QLoggingCategory>

namespace quorvane {
// Single instance, MPRIS and the screen-saver inhibition.
Q_DECLARE_LOGGING_CATEGORY(lcDesktop)
} // namespace quorvane
