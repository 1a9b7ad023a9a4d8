#include "snapshot_text.h"

namespace TAVO::FileMigrateOrvane {
namespace {

constexpr std::string_view VALUE_MARK = ",val=";
constexpr std::string_view NO_VALUE_MARK = ",no value";
constexpr std::size_t FLAG_COUNT = 32;
constexpr std::size_t LONGEST_SET = 16;

bool TakeErrno(Cursor& cursor, int& errorNumber) {
    return cursor.TakeNumber(errorNumber) && cursor.Take(";");
}

bool TakeSet(Cursor& cursor, std::string& digits) {
    digits = cursor.TakeAll("0123456789abcdef", LONGEST_SET);
    return digits.size() > 1;
}

}  // namespace

bool TakeStat(Cursor& cursor, std::string_view path, StatSnapshot& stat) {
    if (!cursor.Take("lstat ") || !cursor.Take(path)) {
        return false;
    }
    if (cursor.Take(":errno=")) {
        return TakeErrno(cursor, stat.errorNumber);
    }
    return cursor.Take(":st_dev:") && cursor.TakeNumber(stat.device) &&          //
           cursor.Take(",st_ino:") && cursor.TakeNumber(stat.inode) &&           //
           cursor.Take(",st_mode:") && cursor.TakeNumber(stat.mode) &&           //
           cursor.Take(",st_nlink:") && cursor.TakeNumber(stat.links) &&         //
           cursor.Take(",st_uid:") && cursor.TakeNumber(stat.uid) &&             //
           cursor.Take(",st_gid:") && cursor.TakeNumber(stat.gid) &&             //
           cursor.Take(",st_rdev:") && cursor.TakeNumber(stat.specialDevice) &&  //
           cursor.Take(",st_size:") && cursor.TakeNumber(stat.size) &&           //
           cursor.Take(",st_blksize:") && cursor.TakeNumber(stat.blockSize) &&   //
           cursor.Take(",st_blocks:") && cursor.TakeNumber(stat.blocks) && cursor.Take(";");
}

bool TakeFlags(Cursor& cursor, FlagsSnapshot& flags) {
    if (cursor.Take(" inode flags:")) {
        const std::string_view digits = cursor.TakeAll("01", FLAG_COUNT);
        for (const char digit : digits) {
            flags.flags = flags.flags << 1U | (digit == '1' ? 1U : 0U);
        }
        return digits.size() == FLAG_COUNT && cursor.Take(";");
    }
    for (const std::string_view step : {"realpath", "open", "ioctl"}) {
        Cursor failure = cursor;
        if (failure.Take(" ") && failure.Take(step)) {
            cursor = failure;
            flags.failedStep = step;
            return cursor.Take(" errno=") && TakeErrno(cursor, flags.errorNumber);
        }
    }
    return false;
}

bool TakeProcess(Cursor& cursor, ProcessSnapshot& process) {
    if (cursor.Take("capget errno=")) {
        return TakeErrno(cursor, process.errorNumber);
    }
    return cursor.Take("file_migrate_orvane proc stat:euid(") && cursor.TakeNumber(process.euid) &&
           cursor.Take("),egid(") && cursor.TakeNumber(process.egid) &&       //
           cursor.Take("),eff(0x") && TakeSet(cursor, process.effective) &&   //
           cursor.Take("),perm(0x") && TakeSet(cursor, process.permitted) &&  //
           cursor.Take("),inh(0x") && TakeSet(cursor, process.inheritable) && cursor.Take(");");
}

bool TakeLabelResult(Cursor& cursor, LabelResult& result) {
    return cursor.Take("ret=") && TakeErrno(cursor, result.ret);
}

bool TakeAttributeFailure(Cursor& cursor, std::string_view path, AttributeSnapshot& attribute) {
    return cursor.Take("llistxattr ") && cursor.Take(path) && cursor.Take(":errno=") &&
           TakeErrno(cursor, attribute.errorNumber);
}

bool TakeAttributeHead(Cursor& cursor, std::string_view path) {
    return cursor.Take("llistxattr ") && cursor.Take(path) && cursor.Take(":key=");
}

bool ReadAttribute(std::string_view text, AttributeSnapshot& attribute) {
    const std::size_t mark = text.find(VALUE_MARK);
    if (mark != std::string_view::npos) {
        attribute.key = text.substr(0, mark);
        attribute.value = text.substr(mark + VALUE_MARK.size());
        return true;
    }
    if (!text.ends_with(NO_VALUE_MARK)) {
        return false;
    }
    attribute.key = text.substr(0, text.size() - NO_VALUE_MARK.size());
    attribute.value.reset();
    return true;
}

bool IsInDoubt(const AttributeSnapshot& attribute) {
    return attribute.value &&
           (attribute.value->find(VALUE_MARK) != std::string::npos || attribute.value->ends_with(NO_VALUE_MARK));
}

}  // namespace TAVO::FileMigrateOrvane
