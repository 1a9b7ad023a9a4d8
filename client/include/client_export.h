// Marks what the shared library offers to C++; all else in it is hidden.
#pragma once

#define FILE_MIGRATE_EXPORT __attribute__((visibility("default")))
