// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstddef>
#include <type_traits>

// Raw room of a given number of bytes, left uninitialised. Blocks of
// several megabytes are aligned to 2 MB and ask for huge pages, which spares
// most of the page faults of fresh memory (a 2048 x 2048 image of doubles
// otherwise takes 8192 of them), and the last one freed (up to 128 MB) is kept
// for the next one of about its size, which then needs no fresh pages at all.
// Empty when the memory cannot be had.
class IPG_LARGE_BLOCK {
public:
  explicit IPG_LARGE_BLOCK(std::size_t bytes);
  IPG_LARGE_BLOCK(const IPG_LARGE_BLOCK&) = delete;
  IPG_LARGE_BLOCK& operator=(const IPG_LARGE_BLOCK&) = delete;
  ~IPG_LARGE_BLOCK();

  bool Empty() const { return Bytes == nullptr; }
  void* Data() const { return Bytes; }
  // The block as values of a trivial type T.
  template <typename T>
  T* As() const
  {
    static_assert(std::is_trivially_copyable_v<T> && std::is_trivially_destructible_v<T>);
    return static_cast<T*>(Bytes);
  }
  // Ownership passes to the caller, who frees it with Free(block, aligned, size).
  void* Release(bool& aligned, std::size_t& size);
  static void Free(void* block, bool aligned, std::size_t size);
  // Frees the block kept for the next one, if any.
  static void ReleaseKept();

private:
  void* Bytes = nullptr;
  std::size_t Size = 0; // what the block holds: at least what was asked for
  bool Aligned = false;
};
