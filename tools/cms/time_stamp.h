// Time stamps (RFC 3161): tokens beside a signature in which an authority vouches for the time at which it was there.
#pragma once

#include "tools/cms/chain_check.h"

#include <optional>
#include <string>
#include <vector>

namespace quelta::tools {

struct ProvenTime {
    // The signature was made before.
    FILETIME time;
    std::string authority;
};

struct StampFindings {
    // The earliest, where any stamp proves one.
    std::optional<ProvenTime> proven;
    // Of each other stamp, why it proves nothing.
    std::vector<std::string> doubts;
};

// Throws nothing for a stamp that does not hold: it stands beside the signature, where anybody can put one, and so it neither
// proves anything nor speaks against the signature.
StampFindings judgeTimeStamps(const Signer& signer, const Roots& roots);

} // namespace quelta::tools
