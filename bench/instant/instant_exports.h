// The instant library's own exports, beside the device library's functions.
#pragma once

// Changes what the token holds. Nobody may call the library meanwhile. See instant_token.h.
extern "C" __declspec(dllexport) void bench_setToken(unsigned keys, unsigned depth, bool issuersFirst);
