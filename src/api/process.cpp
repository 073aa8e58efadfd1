// The exported functions without a group: texts of statuses, log level, version.
#include <atomic>

#include "vekfind/vekfind.h"

namespace {

// Kept for the application only: the library prints nothing.
std::atomic<int> log_level{2};

}  // namespace

const char* VEK_errorcode_to_string(int code) {
#define STATUS_TEXT(status) \
    case status:            \
        return #status
    switch (code) {
        STATUS_TEXT(VEK_OK);
        STATUS_TEXT(VEK_INTERNAL_ERROR);
        STATUS_TEXT(VEK_UNKNOWN_ERROR);
        STATUS_TEXT(VEK_NULL_POINTER);
        STATUS_TEXT(VEK_UNEXPECTED_CONFIG);
        STATUS_TEXT(VEK_UNEXPECTED_MODEL);
        STATUS_TEXT(VEK_BROKEN_FILE);
        STATUS_TEXT(VEK_OUT_OF_RANGE);
        STATUS_TEXT(VEK_INVALID_SETTINGS);
        STATUS_TEXT(VEK_FILE_NOT_FOUND);
        STATUS_TEXT(VEK_INVALID_ARGUMENT);
        STATUS_TEXT(VEK_INVALID_OBJECT_TYPE);
        STATUS_TEXT(VEK_UNSUPPORTED);
        STATUS_TEXT(VEK_MISSING_MAP_ELEMENT);
        STATUS_TEXT(VEK_UNKNOWN_GLOBAL_OPTION);
        STATUS_TEXT(VEK_DUPLICATED_ID);
        STATUS_TEXT(VEK_INVALID_ID);
        STATUS_TEXT(VEK_ID_NOT_FOUND);
        default:
            return "UNKNOWN ERRORCODE";
    }
#undef STATUS_TEXT
}

void VEK_set_log_level(int level) {
    log_level.store(level, std::memory_order_relaxed);
}

void VEK_get_log_level(int* level) {
    *level = log_level.load(std::memory_order_relaxed);
}

void VEK_get_version(const char** version) {
    *version = "v2.2.0";
}
