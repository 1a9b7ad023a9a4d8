// Marks the symbols that the shared library exports to C++. All others are hidden.
#pragma once

#define FILE_MIGRATE_EXPORT __attribute__((visibility("default")))
