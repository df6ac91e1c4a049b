// channel_reports.h: the channels' own lines on the error stream.
#pragma once

#include <string>

#include "flutter_boundary/encodable_value.h"

namespace flutter {

// "Unable to construct method call from message on channel " and the channel's name.
void ReportUndecodableCall(const std::string& channel);

// "Failed to cancel existing stream: ", then code, message and details with a comma and a blank
// between them. Details read as text when they are a string, a bool or a number, "null" when there
// are none, and "(list)" or the like otherwise.
void ReportFailedCancel(const std::string& code, const std::string& message,
                        const EncodableValue* details);

}  // namespace flutter
