// decisions.h: the record of each decision about what may be said or done.
//
// A line in the session log and, where asked, an `onVPNDiagnostic` event. Nothing happens while
// diagnostics are off, and nothing here fails. Any thread.
#pragma once

#include <string>

namespace korvane {

// Records a decision of a site with the state of the moment. A decision without an event is
// frequent, and its line is written at a limited rate.
void RecordDecision(const std::string& site, const std::string& decision, bool emit_event);

// Records the decision that belongs to re-announcing a state word: while an operation is under way
// a refresh or a fresh listener is given the word in progress, and the decision tells that a
// terminal one was held back. The caller posts the word in every case.
void DecideRefreshState(const std::string& site, const std::string& state_word);

}  // namespace korvane
