// The rules that tell why an operation failed, where its record leaves no doubt: each gives the cause in words, or
// nothing. likely_cause.cpp knows which error each is for. Stateless; any thread.
#pragma once

#include <string>

#include "evidence.h"
#include "record.h"

namespace TAVO::FileMigrateOrvane {

using Cause = std::string;

// What is wrong with the request, whatever the error number.
Cause WrongRequest(const Record& record);
Cause WhyRefused(const Record& record);

// The objects are not what the operation needs.
Cause MissingParent(const Evidence& e);
Cause MissingSource(const Evidence& e);
Cause ParentIsNoDirectory(const Evidence& e);
Cause AncestorIsNoDirectory(const Evidence& e);
Cause SourceIsNoDirectory(const Evidence& e);
Cause DirectoryOntoOther(const Evidence& e);
Cause OtherOntoDirectory(const Evidence& e);
Cause UnlinkedDirectory(const Evidence& e);
Cause NotEmpty(const Evidence& e);
Cause SameFile(const Evidence& e);
Cause IntoItself(const Evidence& e);
Cause NotCopied(const Evidence& e);
Cause DestinationIsLink(const Evidence& e);
Cause LinkHasNoMode(const Evidence& e);
Cause Links(const Evidence& e);
Cause TooLong(const Evidence& e);
Cause Program(const Evidence& e);

// The file system or the machine cannot do it.
Cause NoLabels(const Evidence& e);
Cause OtherFileSystem(const Evidence& e);
Cause MountPoint(const Evidence& e);
Cause ReadOnly(const Evidence& e);
Cause NoSpace(const Evidence& e);
Cause NoQuota(const Evidence& e);
Cause DaemonsFiles(const Evidence& e);
Cause SystemsFiles(const Evidence& e);
Cause BrokenDisk(const Evidence& e);
Cause NoMemory(const Evidence& e);

// The daemon may not do it.
Cause Flagged(const Evidence& e);
Cause Sticky(const Evidence& e);
Cause MayNotChown(const Evidence& e);
Cause StickyFile(const Evidence& e);
Cause Denied(const Evidence& e);

}  // namespace TAVO::FileMigrateOrvane
