// The hash algorithms that signatures use, and their computation by bcrypt.dll.
#pragma once

#include "base/bytes.h"
#include "windows_handles.h"

#include <span>
#include <string_view>

namespace quelta {

struct HashAlgorithm {
    const char* name;
    const wchar_t* cngName;
    ALG_ID algId;
    DWORD size;
    const char* oid;
    const char* ecdsaOid;
};

std::span<const HashAlgorithm> hashAlgorithms();
// Null if there is none.
const HashAlgorithm* hashOfOid(std::string_view oid);
const HashAlgorithm& hashOfName(std::string_view name);

class Digest {
public:
    explicit Digest(const HashAlgorithm& algorithm);
    void update(ByteView bytes);
    Bytes finish();

    const HashAlgorithm& algorithm() const { return *algorithm_; }

private:
    const HashAlgorithm* algorithm_;
    AlgorithmHandle provider_;
    BcryptHash hash_;
};

Bytes digestOf(const HashAlgorithm& algorithm, ByteView bytes);

} // namespace quelta
