#include "store/error.h"

#include <cstdio>

namespace vek {

Error::Error(int code, const std::string& message, const char* function) : m_code(code) {
    char number[16];
    std::snprintf(number, sizeof(number), "%d", code);
    m_message = std::string("Error[") + number + "] " + message + " at [" + function + "]";
}

}  // namespace vek
