# PC/SC Lite, libcrypto and zlib at run time; the PKCS#11 types come from the p11-kit header.
find_package(OpenSSL REQUIRED COMPONENTS Crypto)
find_package(ZLIB REQUIRED)

find_path(QUARVEL_CRYPTOKI_INCLUDE p11-kit/pkcs11.h PATH_SUFFIXES p11-kit-1 REQUIRED)
find_path(QUARVEL_PCSC_INCLUDE winscard.h PATH_SUFFIXES PCSC REQUIRED)
find_library(QUARVEL_PCSC_LIBRARY pcsclite REQUIRED)

add_library(Quarvel::Cryptoki INTERFACE IMPORTED)
target_include_directories(Quarvel::Cryptoki SYSTEM INTERFACE ${QUARVEL_CRYPTOKI_INCLUDE})
add_library(Quarvel::PCSCHeaders INTERFACE IMPORTED)
target_include_directories(Quarvel::PCSCHeaders SYSTEM INTERFACE ${QUARVEL_PCSC_INCLUDE})
add_library(Quarvel::PCSC INTERFACE IMPORTED)
target_link_libraries(Quarvel::PCSC INTERFACE Quarvel::PCSCHeaders ${QUARVEL_PCSC_LIBRARY})
