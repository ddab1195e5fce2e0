// The handles of Windows CNG that outlive one call.
#pragma once

#include <windows.h>
#include <bcrypt.h>

#include "foundations/unique_handle.h"

namespace kvx {

struct AlgorithmHandleTraits {
  using value_type = BCRYPT_ALG_HANDLE;
  static value_type none() { return nullptr; }
  static void close(value_type value) { BCryptCloseAlgorithmProvider(value, 0); }
};

struct KeyHandleTraits {
  using value_type = BCRYPT_KEY_HANDLE;
  static value_type none() { return nullptr; }
  static void close(value_type value) { BCryptDestroyKey(value); }
};

using AlgorithmHandle = UniqueHandle<AlgorithmHandleTraits>;  // BCryptOpenAlgorithmProvider
using KeyHandle = UniqueHandle<KeyHandleTraits>;              // BCryptImportKeyPair

}  // namespace kvx
