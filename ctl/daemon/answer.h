// The result of a sub-command, before it is printed as text or as one JSON object. Plain values; used by one thread.
#pragma once

#include <string>
#include <system_error>

#include "action.h"
#include "client_library.h"
#include "json_text.h"

namespace TAVO::FileMigrateOrvane::Ctl {

struct Answer {
    ExitStatus status = ExitStatus::Success;
    bool isOk = true;              ///< also true for a question answered with no
    std::string output{};          ///< for standard output, with newlines
    std::string message{};         ///< for the user: why it failed, or a remark; may be empty
    std::string hint{};            ///< what to do next; may be empty
    std::error_code noAnswer{};    ///< why the daemon gave no answer
    Json fields = Json::object();  ///< keys that this answer adds to the JSON object
};

/// How to write an answer.
struct AnswerStyle {
    bool isHuman = false;  ///< 35M instead of 35840
    bool isJson = false;
};

// Turn the daemon's replies into answers, with the JSON keys that docs/man/orvanectl.1 lists.
Answer AnswerTo(const Outcome& reply, const AnswerStyle& style);
Answer AnswerTo(const YesNo& reply, const AnswerStyle& style);
Answer AnswerTo(const Listing& reply, const AnswerStyle& style);
Answer AnswerTo(const ExistedPathReply& reply, const AnswerStyle& style);
Answer AnswerTo(const Size& reply, const AnswerStyle& style);

/// The answer, turned into a failure.
Answer Failed(Answer answer, const std::string& message, ExitStatus status = ExitStatus::Failed);

/// Why the daemon did not answer.
Answer NoAnswer(const Failure& failure);

/// Prints the answer on standard output: as one JSON object that begins with the keys of `object`, or as text. The
/// message and the hint go to standard error in both cases.
/// @param what  the subject of the message: "move /a -> /b"
/// @return the answer's status; Failed if standard output cannot be written
ExitStatus Print(const Answer& answer, const std::string& what, Json object, bool isJson);

}  // namespace TAVO::FileMigrateOrvane::Ctl
