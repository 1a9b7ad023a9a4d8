#include "answer.h"

#include <unistd.h>

#include <cerrno>
#include <cstdio>

#include "columns.h"
#include "text.h"

namespace TAVO::FileMigrateOrvane::Ctl {
namespace {

/// An answer with the keys that every reply has.
Answer Begin(const Reply& reply) {
    if (reply.failure) {
        return NoAnswer(reply.failure);
    }
    Answer answer;
    answer.fields["result"] = reply.result;
    PutError(answer.fields, reply.errCode);
    return answer;
}

Answer Failed(const Reply& reply) {
    return reply.failure ? NoAnswer(reply.failure) : Failed(Begin(reply), ErrorText(reply.errCode));
}

Json EntriesOf(const Listing& reply) {
    Json entries = Json::array();
    for (const Entry& entry : reply.entries) {
        Json object;
        PutText(object, "name", entry.name);
        object["directory"] = entry.isDirectory;
        entries.push_back(std::move(object));
    }
    return entries;
}

/// Escapes a name for a terminal, which could act on its bytes. Scripts get the bytes unchanged.
std::string ForOutput(const std::string& bytes) {
    return isatty(STDOUT_FILENO) == 1 ? Printable(bytes) : bytes;
}

}  // namespace

Answer Failed(Answer answer, const std::string& message, ExitStatus status) {
    answer.status = status;
    answer.isOk = false;
    answer.message = message;
    return answer;
}

Answer NoAnswer(const Failure& failure) {
    const bool isRefused = failure.code == ClientErrc::InvalidRequest;
    Answer answer = Failed({}, failure.Message(), isRefused ? ExitStatus::Usage : ExitStatus::NoAnswer);
    answer.noAnswer = failure.code;
    answer.fields["result"] = nullptr;
    // Error numbers of the system for the library's failures too, so that scripts see only one kind of number.
    PutError(answer.fields, failure.code.default_error_condition().value());
    return answer;
}

Answer AnswerTo(const Outcome& reply, const AnswerStyle& /*style*/) {
    if (reply.SourceMissing()) {
        return Failed(Begin(reply), "the source does not exist", ExitStatus::SourceMissing);
    }
    Answer answer = reply.Succeeded() ? Begin(reply) : Failed(reply);
    // A move across file systems always reports EXDEV. Any other error means that an object was left out.
    if (answer.isOk && reply.errCode != 0 && reply.errCode != EXDEV) {
        answer.message = "done, but something may be left out: " + ErrorText(reply.errCode);
    }
    return answer;
}

Answer AnswerTo(const YesNo& reply, const AnswerStyle& /*style*/) {
    if (!reply.IsYes() && !reply.IsNo()) {
        return Failed(reply);
    }
    Answer answer = Begin(reply);
    answer.status = reply.IsYes() ? ExitStatus::Success : ExitStatus::Failed;
    answer.fields["answer"] = reply.IsYes();
    return answer;
}

Answer AnswerTo(const Listing& reply, const AnswerStyle& style) {
    if (!reply.Succeeded()) {
        return Failed(reply);
    }
    Answer answer = Begin(reply);
    if (style.isJson) {
        answer.fields["entries"] = EntriesOf(reply);
    } else {
        answer.output = ListingText(reply.entries);
    }
    return answer;
}

Answer AnswerTo(const ExistedPathReply& reply, const AnswerStyle& /*style*/) {
    if (!reply.Succeeded()) {
        return Failed(reply);
    }
    Answer answer = Begin(reply);
    PutText(answer.fields, "existing_path", reply.path);
    answer.output = ForOutput(reply.path) + "\n";
    return answer;
}

Answer AnswerTo(const Size& reply, const AnswerStyle& style) {
    if (reply.failure || reply.result < 0) {
        return Failed(reply);
    }
    Answer answer = Begin(reply);
    answer.fields["kilobytes"] = reply.kilobytes;
    answer.fields["whole"] = reply.isWhole;
    answer.output =
        (style.isHuman ? HumanSize(static_cast<std::uint64_t>(reply.kilobytes)) : std::to_string(reply.kilobytes)) +
        "\n";
    return reply.isWhole ? answer : Failed(std::move(answer), "the figure is incomplete: " + ErrorText(reply.errCode));
}

ExitStatus Print(const Answer& answer, const std::string& what, Json object, bool isJson) {
    if (!answer.message.empty()) {
        Complain(what, answer.message);
    }
    if (!answer.hint.empty()) {
        (void)std::fprintf(stderr, "hint: %s\n", answer.hint.c_str());
    }
    if (isJson) {
        object["ok"] = answer.isOk;
        object["result"] = nullptr;
        PutError(object, 0);
        object.update(answer.fields);
        PutText(object, "message", answer.message);
        PutText(object, "hint", answer.hint);
        PrintJsonLine(object);
    } else {
        (void)std::fwrite(answer.output.data(), 1, answer.output.size(), stdout);
    }
    if (std::fflush(stdout) != 0 || std::ferror(stdout) != 0) {
        Complain(what, "the answer could not be written to standard output");
        return ExitStatus::Failed;
    }
    return answer.status;
}

}  // namespace TAVO::FileMigrateOrvane::Ctl
