#include "DesktopLog.h"

namespace quorvane {
Q_LOGGING_CATEGORY(lcDesktop, "quorvane.desktop")
} // namespace quorvane
