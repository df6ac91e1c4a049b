// user_text_file.h: the small text files that stand for a Windows user's settings.
//
// They lie in $XDG_CONFIG_HOME/Korvane where that variable holds an absolute path, else in
// $HOME/.config/Korvane. A change is made under an flock of the file NAME.lock beside it, written
// to NAME.tmp and renamed over NAME: a reader needs no lock and finds the old text or the new one,
// whole. The environment is read at each call. Any thread.
#pragma once

#include <functional>
#include <string>
#include <vector>

#include "platform/result.h"

namespace korvane::platform {

using TextLines = std::vector<std::string>;

// The file's lines without their ends (LF or CR LF); none when there is no file.
Result<TextLines> ReadUserText(const char* name);

// Lets `change` edit the lines, and stores them. Nothing is stored when `change` fails; its failure
// is then the result. Makes the folder if need be.
Status ChangeUserText(const char* name, const std::function<Status(TextLines&)>& change);

// The text can stand in one line.
bool FitsInOneLine(std::string_view text);

}  // namespace korvane::platform
