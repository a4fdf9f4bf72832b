# SPDX-License-Identifier: Apache-2.0
# The library behind Mth_FFT2D, chosen with IPG_FFT_BACKEND:
#   FFTW     FFTW3, the fastest; GPL, so a program linked with it is GPL.
#   KISSFFT  KissFFT's header-only C++ template in double precision; BSD.
# FFTW when it is installed. mth/mth_fft.cpp is the only source that knows
# which: IPG_FFT_KISSFFT selects KissFFT, FFTW otherwise.
pkg_check_modules(FFTW3 IMPORTED_TARGET fftw3)
find_path(KISSFFT_INCLUDE_DIR kissfft/kissfft.hh)
if(FFTW3_FOUND)
  set(IPG_FFT_BACKEND FFTW CACHE STRING "Fourier transform library: FFTW (GPL) or KISSFFT (BSD)")
else()
  set(IPG_FFT_BACKEND KISSFFT CACHE STRING "Fourier transform library: FFTW (GPL) or KISSFFT (BSD)")
endif()
set_property(CACHE IPG_FFT_BACKEND PROPERTY STRINGS FFTW KISSFFT)
# What Mth_FFTBackend() answers for each.
set(IPG_FFT_NAME_FFTW FFTW)
set(IPG_FFT_NAME_KISSFFT KissFFT)

# An interface target that compiles and links mth_fft.cpp for one backend.
function(ipg_add_fft_backend target backend)
  add_library(${target} INTERFACE)
  if(backend STREQUAL "FFTW")
    if(NOT FFTW3_FOUND)
      message(FATAL_ERROR "IPG_FFT_BACKEND=FFTW needs FFTW3 (libfftw3-dev)")
    endif()
    target_link_libraries(${target} INTERFACE PkgConfig::FFTW3)
  elseif(backend STREQUAL "KISSFFT")
    if(NOT KISSFFT_INCLUDE_DIR)
      message(FATAL_ERROR "IPG_FFT_BACKEND=KISSFFT needs kissfft/kissfft.hh (libkissfft-dev)")
    endif()
    target_include_directories(${target} SYSTEM INTERFACE ${KISSFFT_INCLUDE_DIR})
    target_compile_definitions(${target} INTERFACE IPG_FFT_KISSFFT)
  else()
    message(FATAL_ERROR "IPG_FFT_BACKEND must be FFTW or KISSFFT, not '${backend}'")
  endif()
endfunction()

ipg_add_fft_backend(ipg-fft-backend ${IPG_FFT_BACKEND})
message(STATUS "Fourier transforms: ${IPG_FFT_BACKEND}")

# The other backend, when it is installed too: the Fourier tests run on it as
# well (tests/fft_second_backend.cmake).
if(IPG_FFT_BACKEND STREQUAL "FFTW" AND KISSFFT_INCLUDE_DIR)
  set(IPG_FFT_SECOND_BACKEND KISSFFT)
elseif(IPG_FFT_BACKEND STREQUAL "KISSFFT" AND FFTW3_FOUND)
  set(IPG_FFT_SECOND_BACKEND FFTW)
else()
  set(IPG_FFT_SECOND_BACKEND "")
endif()
