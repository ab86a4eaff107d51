# Logins through the mechanism records, HMAC-MD5 against OpenSSL's, and
# password verification through the pool against a fresh connection and bind
# per verification (plain libldap), both against a test slapd started by the
# test fixture; built only with the tests' support library.
if(TARGET orvtestsupport)
  orv_add_bench(auth_bench auth_bench.cpp LIBS orvtestsupport PkgConfig::LDAP OpenSSL::Crypto)
endif()
