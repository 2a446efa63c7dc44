#include "MOXIDOM_Platform.h"

#include <mutex>

#include <xercesc/util/PlatformUtils.hpp>

void MOXIDOM_Platform::ensureInitialized() {
    static std::once_flag once;
    std::call_once(once, [] { XERCES_CPP_NAMESPACE::XMLPlatformUtils::Initialize(); });
}
