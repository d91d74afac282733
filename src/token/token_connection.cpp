#include "token/token_connection.h"

#include "log/log_writer.h"
#include "token/device_monitor.h"
#ifndef _MSC_VER
#include "token/library_compiler.h"
#endif
#include "token/token.h"

namespace quelta {

std::expected<std::string, OpeningFailure> openFirstToken(void* libContext, const OpeningTexts& texts)
{
    auto& initialised = tokenState().libraryInitialised;
    if (!initialised) {
        logDebug(texts.startingLibrary);
        // The result is ignored: a failure shows when the device is opened.
        deviceLibrary().init(0, 2);
#ifndef _MSC_VER
        if (deviceLibraryIsForeign()) return std::unexpected(OpeningFailure::deviceOpenFailed);
#endif
    }
    startDeviceMonitor();
    const auto connected = deviceLibrary().getConnectedDeviceList(false, libContext);
    if (connected.empty()) {
        logError(texts.noToken);
        return std::unexpected(OpeningFailure::noToken);
    }
    std::string deviceId = connected.front();
    if (!initialised) {
        if (const int result = Token(deviceId, libContext).initDevice(false)) {
            logError(texts.openFailed, result);
            return std::unexpected(OpeningFailure::deviceOpenFailed);
        }
        initialised = true;
    }
    return deviceId;
}

} // namespace quelta
