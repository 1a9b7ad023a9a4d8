// What a sub-command came to, before it is told: as text or as one JSON object. Plain values; used by the one thread
// of the tool.
#pragma once

#include <string>
#include <system_error>

#include "exit_status.h"
#include "file_migrate_client.hpp"
#include "json_text.h"

namespace TAVO::FileMigrateOrvane {

struct Answer {
    ExitStatus status = ExitStatus::Success;
    bool isOk = true;              ///< also a question that was answered with no
    std::string output{};          ///< for standard output, newlines included
    std::string message{};         ///< why it is not ok, or what else a person should know; empty: nothing
    std::string hint{};            ///< what to do next; empty: nothing
    std::error_code noAnswer{};    ///< why the daemon gave no answer
    Json fields = Json::object();  ///< what the JSON object has of its own
};

/// How an answer is to be written.
struct AnswerStyle {
    bool isHuman = false;  ///< 35M rather than 35840
    bool isJson = false;
};

// The daemon's replies; each puts the fields that docs/man/orvanectl.1 lists.
Answer AnswerTo(const Outcome& reply, const AnswerStyle& style);
Answer AnswerTo(const YesNo& reply, const AnswerStyle& style);
Answer AnswerTo(const Listing& reply, const AnswerStyle& style);
Answer AnswerTo(const ExistedPathReply& reply, const AnswerStyle& style);
Answer AnswerTo(const Size& reply, const AnswerStyle& style);

/// Why the daemon did not answer.
Answer NoAnswer(const Failure& failure);

/// Writes the answer: with JSON the one object, which begins with the keys of `object`, and its output otherwise, on
/// standard output; the message and the hint on standard error in both cases.
/// @param what  what the message is about: "move /a -> /b"
/// @return the answer's status; Failed where standard output could not be written
ExitStatus Tell(const Answer& answer, const std::string& what, Json object, bool isJson);

}  // namespace TAVO::FileMigrateOrvane
