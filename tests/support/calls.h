// SPDX-License-Identifier: Apache-2.0
// The calls that a test can make fail, one row each: the row yields the enumerator Call::<name> and
// the function that stands in front of the real one.
//
// The first column says how the call fails with the number that the test gave:
//   Code     returns the number                        (pthread)
//   Errno    returns -1 and sets errno to the number   (system calls)
//   Null     returns null and sets errno to the number (streams, allocation)
//   Result   returns the number, cast to its type      (OpenSSL: 0, -1, a null pointer ...)
//
// Keep the families apart and each sorted. A type that holds a comma needs an alias in
// interpose.cpp.
#ifndef TARNUTIL_TESTS_SUPPORT_CALLS_H
#define TARNUTIL_TESTS_SUPPORT_CALLS_H

// clang-format off
#define TARNUTIL_TEST_CALLS(ROW)                                                                                      \
    /*  fails   result       name                 parameters                                        arguments */      \
    /* stack walking */                                                                                               \
    ROW(Result, int,         backtrace,           (void** a, int b),                                (a, b))           \
    /* files and streams */                                                                                           \
    ROW(Errno,  int,         chmod,               (const char* a, mode_t b),                        (a, b))           \
    ROW(Errno,  int,         close,               (int a),                                          (a))              \
    ROW(Errno,  int,         closedir,            (DIR* a),                                         (a))              \
    ROW(Errno,  int,         fclose,              (FILE* a),                                        (a))              \
    ROW(Null,   FILE*,       fopen,               (const char* a, const char* b),                   (a, b))           \
    ROW(Null,   FILE*,       fopen64,             (const char* a, const char* b),                   (a, b))           \
    ROW(Result, std::size_t, fread,               (void* a, std::size_t b, std::size_t c, FILE* d), (a, b, c, d))     \
    ROW(Errno,  int,         lstat,               (const char* a, struct stat* b),                  (a, b))           \
    ROW(Errno,  int,         mkdir,               (const char* a, mode_t b),                        (a, b))           \
    ROW(Null,   char*,       mkdtemp,             (char* a),                                        (a))              \
    ROW(Errno,  int,         mkstemp,             (char* a),                                        (a))              \
    ROW(Null,   DIR*,        opendir,             (const char* a),                                  (a))              \
    ROW(Errno,  ssize_t,     read,                (int a, void* b, std::size_t c),                  (a, b, c))        \
    ROW(Code,   int,         readdir_r,           (DIR* a, dirent* b, dirent** c),                  (a, b, c))        \
    ROW(Errno,  int,         remove,              (const char* a),                                  (a))              \
    ROW(Errno,  int,         stat,                (const char* a, struct stat* b),                  (a, b))           \
    ROW(Result, time_t,      time,                (time_t* a),                                      (a))              \
    ROW(Errno,  int,         unlink,              (const char* a),                                  (a))              \
    ROW(Errno,  ssize_t,     write,               (int a, const void* b, std::size_t c),            (a, b, c))        \
    ROW(Errno,  ssize_t,     writev,              (int a, const iovec* b, int c),                   (a, b, c))        \
    /* child processes and pipes */                                                                                   \
    ROW(Errno,  int,         dup,                 (int a),                                          (a))              \
    ROW(Errno,  int,         dup2,                (int a, int b),                                   (a, b))           \
    ROW(Errno,  int,         execv,               (const char* a, char* const* b),                  (a, b))           \
    ROW(Errno,  pid_t,       fork,                (),                                               ())               \
    ROW(Errno,  int,         kill,                (pid_t a, int b),                                 (a, b))           \
    ROW(Errno,  int,         pipe,                (int* a),                                         (a))              \
    ROW(Errno,  pid_t,       waitpid,             (pid_t a, int* b, int c),                         (a, b, c))        \
    /* mutexes, conditions and threads */                                                                             \
    ROW(Errno,  int,         gettimeofday,        (timeval* a, void* b),                            (a, b))           \
    ROW(Code,   int,         pthread_attr_destroy, (pthread_attr_t* a),                             (a))              \
    ROW(Code,   int,         pthread_attr_init,   (pthread_attr_t* a),                              (a))              \
    ROW(Code,   int,         pthread_attr_setdetachstate, (pthread_attr_t* a, int b),               (a, b))           \
    ROW(Code,   int,         pthread_cond_broadcast, (pthread_cond_t* a),                           (a))              \
    ROW(Code,   int,         pthread_cond_destroy, (pthread_cond_t* a),                             (a))              \
    ROW(Code,   int,         pthread_cond_init,   (pthread_cond_t* a, const pthread_condattr_t* b), (a, b))           \
    ROW(Code,   int,         pthread_cond_signal, (pthread_cond_t* a),                              (a))              \
    ROW(Code,   int,         pthread_cond_timedwait, (pthread_cond_t* a, pthread_mutex_t* b, const timespec* c), (a, b, c)) \
    ROW(Code,   int,         pthread_cond_wait,   (pthread_cond_t* a, pthread_mutex_t* b),          (a, b))           \
    ROW(Code,   int,         pthread_create,      (pthread_t* a, const pthread_attr_t* b, void* (*c)(void*), void* d), (a, b, c, d)) \
    ROW(Code,   int,         pthread_detach,      (pthread_t a),                                    (a))              \
    ROW(Code,   int,         pthread_join,        (pthread_t a, void** b),                          (a, b))           \
    ROW(Code,   int,         pthread_mutex_destroy, (pthread_mutex_t* a),                           (a))              \
    ROW(Code,   int,         pthread_mutex_init,  (pthread_mutex_t* a, const pthread_mutexattr_t* b), (a, b))         \
    ROW(Code,   int,         pthread_mutex_lock,  (pthread_mutex_t* a),                             (a))              \
    ROW(Code,   int,         pthread_mutex_trylock, (pthread_mutex_t* a),                           (a))              \
    ROW(Code,   int,         pthread_mutex_unlock, (pthread_mutex_t* a),                            (a))              \
    ROW(Code,   int,         pthread_mutexattr_destroy, (pthread_mutexattr_t* a),                   (a))              \
    ROW(Code,   int,         pthread_mutexattr_init, (pthread_mutexattr_t* a),                      (a))              \
    ROW(Code,   int,         pthread_mutexattr_settype, (pthread_mutexattr_t* a, int b),            (a, b))           \
    /* address text */                                                                                                \
    ROW(Null,   const char*, inet_ntop,           (int a, const void* b, char* c, socklen_t d),     (a, b, c, d))     \
    ROW(Result, int,         inet_pton,           (int a, const char* b, void* c),                  (a, b, c))        \
    /* OpenSSL */                                                                                                     \
    ROW(Result, long,        BIO_ctrl,            (BIO* a, int b, long c, void* d),                 (a, b, c, d))     \
    ROW(Result, BIO*,        BIO_new,             (const BIO_METHOD* a),                            (a))              \
    ROW(Result, BIO*,        BIO_new_file,        (const char* a, const char* b),                   (a, b))           \
    ROW(Result, BIO*,        BIO_new_mem_buf,     (const void* a, int b),                           (a, b))           \
    ROW(Result, int,         BIO_read,            (BIO* a, void* b, int c),                         (a, b, c))        \
    ROW(Result, int,         BIO_write,           (BIO* a, const void* b, int c),                   (a, b, c))        \
    ROW(Result, unsigned char*, MD5,              (const unsigned char* a, std::size_t b, unsigned char* c), (a, b, c)) \
    ROW(Result, int,         RSA_private_encrypt, (int a, const unsigned char* b, unsigned char* c, RSA* d, int e),(a, b, c, d, e))\
    ROW(Result, int,         RSA_public_decrypt,  (int a, const unsigned char* b, unsigned char* c, RSA* d, int e),(a, b, c, d, e))\
    ROW(Result, unsigned char*, SHA1,             (const unsigned char* a, std::size_t b, unsigned char* c), (a, b, c)) \
    ROW(Result, long,        SSL_CTX_ctrl,        (SSL_CTX* a, int b, long c, void* d),             (a, b, c, d))     \
    ROW(Result, SSL_CTX*,    SSL_CTX_new,         (const SSL_METHOD* a),                            (a))              \
    ROW(Result, int,         SSL_CTX_use_PrivateKey, (SSL_CTX* a, EVP_PKEY* b),                         (a, b))       \
    ROW(Result, int,         SSL_CTX_use_certificate, (SSL_CTX* a, X509* b),                            (a, b))       \
    ROW(Result, int,         X509_digest,         (const X509* a, const EVP_MD* b, unsigned char* c, unsigned* d), (a, b, c, d))\
    ROW(Result, EVP_PKEY*,   X509_get_pubkey,     (X509* a),                                        (a))              \
    ROW(Result, int,         X509_verify,         (X509* a, EVP_PKEY* b),                           (a, b))           \
    /* end of the table */
// clang-format on

namespace tarnutil_test {

enum class Call {
#define TARNUTIL_TEST_ENUMERATOR(fails, result, name, parameters, arguments) name,
    TARNUTIL_TEST_CALLS(TARNUTIL_TEST_ENUMERATOR)
#undef TARNUTIL_TEST_ENUMERATOR
        operator_new,  // throws std::bad_alloc; its number is not used
    count
};

}  // namespace tarnutil_test
#endif  // TARNUTIL_TESTS_SUPPORT_CALLS_H
