# SPDX-License-Identifier: Apache-2.0
# The Fourier tests once more on the FFT backend that the library was not built
# with, so that both stay correct whichever one a build ships. Cheapest form:
# only mth_fft.cpp and the two Fourier operators are compiled a second time,
# for the other backend, into one small test program that takes everything
# else from the static library, whose members holding those definitions are
# then never linked: the tests run the operators on the other backend.
target_compile_definitions(test_mth PRIVATE IPG_EXPECTED_FFT_BACKEND="${IPG_FFT_NAME_${IPG_FFT_BACKEND}}")
# With FFTW installed, the transform tests compare with FFTW's own 2-D plan.
if(FFTW3_FOUND)
  target_link_libraries(test_mth PRIVATE PkgConfig::FFTW3)
  target_compile_definitions(test_mth PRIVATE IPG_TEST_WITH_FFTW)
endif()
if(NOT IPG_FFT_SECOND_BACKEND)
  message(STATUS "Only one FFT backend installed: the Fourier tests run on ${IPG_FFT_BACKEND} alone")
  return()
endif()

ipg_add_fft_backend(ipg-fft-second-backend ${IPG_FFT_SECOND_BACKEND})
add_executable(test_fft_second_backend
  ${CMAKE_CURRENT_SOURCE_DIR}/mth/mth_fft_test.cpp
  ${CMAKE_CURRENT_SOURCE_DIR}/frequency/ipg_fft_one_input_test.cpp
  ${CMAKE_CURRENT_SOURCE_DIR}/frequency/ipg_fft_two_inputs_test.cpp
  ${PROJECT_SOURCE_DIR}/mth/mth_fft.cpp
  ${PROJECT_SOURCE_DIR}/ipg/frequency/ipg_fft_one_input.cpp
  ${PROJECT_SOURCE_DIR}/ipg/frequency/ipg_fft_two_inputs.cpp)
target_link_libraries(test_fft_second_backend PRIVATE ipg-fft-second-backend ipg-static GTest::gtest GTest::gtest_main)
target_include_directories(test_fft_second_backend PRIVATE ${CMAKE_CURRENT_SOURCE_DIR})
if(OpenMP_CXX_FOUND)
  target_link_libraries(test_fft_second_backend PRIVATE OpenMP::OpenMP_CXX)
endif()
if(FFTW3_FOUND)
  target_link_libraries(test_fft_second_backend PRIVATE PkgConfig::FFTW3)
  target_compile_definitions(test_fft_second_backend PRIVATE IPG_TEST_WITH_FFTW)
endif()
target_compile_definitions(test_fft_second_backend PRIVATE IPG_EXPECTED_FFT_BACKEND="${IPG_FFT_NAME_${IPG_FFT_SECOND_BACKEND}}")
gtest_discover_tests(test_fft_second_backend DISCOVERY_TIMEOUT 60 TEST_PREFIX "${IPG_FFT_SECOND_BACKEND}."
  PROPERTIES LABELS fft-second-backend)
