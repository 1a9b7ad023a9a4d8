// The rules that find the cause of a failure. Each rule returns a cause only if the record leaves no doubt, and an
// empty one otherwise. likely_cause.cpp knows which error each rule belongs to. Functions without state; any thread may
// call them.
#pragma once

#include "evidence.h"
#include "explain.h"

namespace TAVO::FileMigrateOrvane::Reader {

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
Cause SpecialFile(const Evidence& e);
Cause DestinationIsLink(const Evidence& e);
Cause LinkHasNoMode(const Evidence& e);
Cause TooManyLinks(const Evidence& e);
Cause TooLong(const Evidence& e);
Cause RunningProgram(const Evidence& e);

// The file system or the machine cannot do it.
Cause NoLabels(const Evidence& e);
Cause OtherFileSystem(const Evidence& e);
Cause MountPoint(const Evidence& e);
Cause ReadOnly(const Evidence& e);
Cause NoSpace(const Evidence& e);
Cause NoQuota(const Evidence& e);
Cause NoDescriptor(const Evidence& e);
Cause NoDescriptorInSystem(const Evidence& e);
Cause DiskFailed(const Evidence& e);
Cause NoMemory(const Evidence& e);
Cause CorruptFileSystem(const Evidence& e);
Cause TooManySubdirectories(const Evidence& e);
Cause TooLarge(const Evidence& e);
Cause KernelFileSystem(const Evidence& e);

// The daemon is not allowed to do it.
Cause Flagged(const Evidence& e);
Cause Sticky(const Evidence& e);
Cause MayNotChown(const Evidence& e);
Cause StickyFile(const Evidence& e);
Cause MissingCapability(const Evidence& e);
Cause Denied(const Evidence& e);

}  // namespace TAVO::FileMigrateOrvane::Reader
