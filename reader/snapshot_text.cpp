#include "snapshot_text.h"

#include <utility>

#include "record_format.h"

namespace TAVO::FileMigrateOrvane::Reader {
namespace {

constexpr std::size_t LONGEST_SET = 16;

bool TakeErrno(Cursor& cursor, int& errorNumber) {
    return cursor.TakeNumber(errorNumber) && cursor.Take(RecordKey::END);
}

bool TakeSet(Cursor& cursor, std::string& digits) {
    digits = cursor.TakeAll("0123456789abcdef", LONGEST_SET);
    return digits.size() > 1;
}

}  // namespace

bool TakeStat(Cursor& cursor, std::string_view path, StatSnapshot& stat) {
    if (!cursor.Take(RecordKey::STAT) || !cursor.Take(path)) {
        return false;
    }
    if (cursor.Take(RecordKey::SNAPSHOT_ERRNO)) {
        return TakeErrno(cursor, stat.errorNumber);
    }
    const auto* key = RecordKey::STAT_FIELDS.begin();
    const auto takeFields = [&](auto&... fields) {
        static_assert(sizeof...(fields) == RecordKey::STAT_FIELDS.size());
        return ((cursor.Take(*key++) && cursor.TakeNumber(fields)) && ...);
    };
    return takeFields(stat.device, stat.inode, stat.mode, stat.links, stat.uid, stat.gid, stat.specialDevice, stat.size,
                      stat.blockSize, stat.blocks) &&
           cursor.Take(RecordKey::END);
}

bool TakeFlags(Cursor& cursor, FlagsSnapshot& flags) {
    if (cursor.Take(RecordKey::INODE_FLAGS)) {
        const std::string_view digits = cursor.TakeAll("01", RecordKey::INODE_FLAG_DIGITS);
        for (const char digit : digits) {
            flags.flags = flags.flags << 1U | (digit == '1' ? 1U : 0U);
        }
        return digits.size() == RecordKey::INODE_FLAG_DIGITS && cursor.Take(RecordKey::END);
    }
    constexpr std::pair<std::string_view, const char*> steps[] = {
        {RecordKey::FAILED_REALPATH, "realpath"}, {RecordKey::FAILED_OPEN, "open"}, {RecordKey::FAILED_IOCTL, "ioctl"}};
    for (const auto& [key, step] : steps) {
        if (cursor.Take(key)) {
            flags.failedStep = step;
            return TakeErrno(cursor, flags.errorNumber);
        }
    }
    return false;
}

bool TakeProcess(Cursor& cursor, ProcessSnapshot& process) {
    if (cursor.Take(RecordKey::FAILED_CAPGET)) {
        return TakeErrno(cursor, process.errorNumber);
    }
    return cursor.Take(RecordKey::EUID) && cursor.TakeNumber(process.euid) &&          //
           cursor.Take(RecordKey::EGID) && cursor.TakeNumber(process.egid) &&          //
           cursor.Take(RecordKey::EFFECTIVE) && TakeSet(cursor, process.effective) &&  //
           cursor.Take(RecordKey::PERMITTED) && TakeSet(cursor, process.permitted) &&  //
           cursor.Take(RecordKey::INHERITABLE) && TakeSet(cursor, process.inheritable) &&
           cursor.Take(RecordKey::PROCESS_END) && cursor.Take(RecordKey::END);
}

bool TakeLabelResult(Cursor& cursor, LabelResult& result) {
    return cursor.Take(RecordKey::LABEL_RESULT) && TakeErrno(cursor, result.ret);
}

bool TakeAttributeFailure(Cursor& cursor, std::string_view path, AttributeSnapshot& attribute) {
    return cursor.Take(RecordKey::XATTR) && cursor.Take(path) && cursor.Take(RecordKey::SNAPSHOT_ERRNO) &&
           TakeErrno(cursor, attribute.errorNumber);
}

bool TakeAttributeHead(Cursor& cursor, std::string_view path) {
    return cursor.Take(RecordKey::XATTR) && cursor.Take(path) && cursor.Take(RecordKey::XATTR_KEY);
}

bool ReadAttribute(std::string_view text, AttributeSnapshot& attribute) {
    const std::size_t mark = text.find(RecordKey::XATTR_VALUE);
    if (mark != std::string_view::npos) {
        attribute.key = text.substr(0, mark);
        attribute.value = text.substr(mark + RecordKey::XATTR_VALUE.size());
        return true;
    }
    if (!text.ends_with(RecordKey::XATTR_NO_VALUE)) {
        return false;
    }
    attribute.key = text.substr(0, text.size() - RecordKey::XATTR_NO_VALUE.size());
    attribute.value.reset();
    return true;
}

bool IsInDoubt(const AttributeSnapshot& attribute) {
    return attribute.value && (attribute.value->find(RecordKey::XATTR_VALUE) != std::string::npos ||
                               attribute.value->ends_with(RecordKey::XATTR_NO_VALUE));
}

}  // namespace TAVO::FileMigrateOrvane::Reader
