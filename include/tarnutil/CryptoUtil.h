// SPDX-License-Identifier: Apache-2.0
// Base64, SHA-1 and MD5 digests, a codec of length-prefixed fields, and the authentication token
// that is built from them. docs/token.md describes the token's format.
//
// Errors:  every failure throws tarnutil::Exception, and nothing else leaves. A failed allocation
//          ends the process (std::terminate). Inside OpenSSL it throws the sentence of the step
//          that fails for it. OpenSSL's error queue is neither read nor cleared: it keeps what
//          OpenSSL queued for a failed RSA call.
// Threads: any thread may call any function. An RSA key may be used by several threads at once as
//          far as OpenSSL allows it: no lock is taken around it.
#ifndef TARNUTIL_CRYPTOUTIL_H
#define TARNUTIL_CRYPTOUTIL_H

#include <map>
#include <string>
#include <vector>

#include <tarnutil/export.h>

struct rsa_st;  // OpenSSL's RSA

namespace tarnutil {

class TARNUTIL_API CryptoUtil {
public:
    CryptoUtil() = delete;

    // Returns the base64 text of `data` on one line: the standard alphabet, "=" at the end where
    // needed, no line breaks.
    //
    // Throws "Could not allocate base64 BIO.", "Could not allocate output memory BIO.",
    // "Could not write to BIO." (also for more than INT_MAX bytes), "Could not flush BIO." or
    // "Could not get memory buffer from BIO.".
    static std::string base64Encode(const std::vector<unsigned char>& data);

    // Returns the bytes that the base64 `text` stands for. The text has to be one line and is not
    // trimmed: whatever in it is no base64, a line break included, is handled as OpenSSL's decoder
    // handles it, which mostly ends the result early without an error. Its length is taken as an
    // int: give no more than INT_MAX bytes.
    //
    // Throws "Could not allocate base64 BIO.", "Could not allocate input memory buffer BIO.",
    // "Could not allocate output memory BIO.", "Could not read from BIO." or
    // "Could not get memory buffer from BIO.".
    static std::vector<unsigned char> base64Decode(std::string text);

    // Return the digest of `data`, which they leave as it is: 20 bytes of SHA-1, 16 bytes of MD5.
    static std::vector<unsigned char> computeSha1Digest(std::vector<unsigned char>& data);
    static std::vector<unsigned char> computeMd5Digest(std::vector<unsigned char>& data);

    // Return the digest of the contents of the file `path`, which may have any size. An error while
    // reading counts as the end of the file: the digest is then that of what was read.
    //
    // Throw `Could not open file "PATH" for reading: TEXT`, with the system's text.
    static std::vector<unsigned char> computeSha1Digest(const std::string& path);
    static std::vector<unsigned char> computeMd5Digest(const std::string& path);

    // Returns `value` with its four bytes in reverse order.
    static unsigned int swapEndian(unsigned int value);

    // Take a field from the front of the `remaining` bytes at `cursor` and move both past it: an
    // integer of 4 bytes, least significant first; and a string, which is its length as such an
    // integer and then its bytes.
    //
    // Throw "Not enough data in authentication token.". Both arguments then stand behind the last
    // field that was complete: an integer that is cut short leaves them alone, a string that is cut
    // short leaves them behind its length.
    static unsigned int getUInt32T(unsigned char*& cursor, unsigned long& remaining);
    static std::string getString(unsigned char*& cursor, unsigned long& remaining);

    // Append a field in the same form. Of a string's length only the low 32 bits are written; its
    // bytes are appended all the same.
    static void insertUInt32T(std::vector<unsigned char>& out, unsigned int value);
    static void insertString(std::vector<unsigned char>& out, const std::string& s);

    // Appends the SHA-1 digest, 20 bytes, of all that `out` holds.
    static void insertHash(std::vector<unsigned char>& out);

    // Returns a token for `user` with `attributes`: one line of base64 that only a holder of the
    // private `key` can make and every holder of its public key can read. `timestamp` is in seconds
    // since the epoch; its low 32 bits are kept. The second form takes the current time.
    //
    // Names and values may hold any bytes, but a "=" in a name ends the name on the other side.
    // `key` is borrowed, must not be null and has to hold the private part.
    //
    // Throws "Could not RSA encrypt authentication token." (also for a key of 11 bytes or fewer,
    // which the padding alone would fill) or what base64Encode throws.
    static std::string generateAuthToken(const std::string& user,
                                         const std::map<std::string, std::string>& attributes,
                                         long timestamp, rsa_st* key);
    static std::string generateAuthToken(const std::string& user,
                                         const std::map<std::string, std::string>& attributes,
                                         rsa_st* key);

    // Opens a token with the public `key`, which is borrowed and must not be null. How old a token
    // may be is for the caller to decide: compare `timestamp`, which comes back between 0 and
    // 4294967295.
    //
    // `attributes` is replaced, or left as it is if the token ends behind the user name: such short
    // tokens are valid, so clear the map before the call. An entry without "=" is a name with an
    // empty value, an attribute that comes twice has its last value, and bytes behind the last
    // entry are ignored.
    //
    // Throws "Could not RSA decrypt authentication token." (also for data that is no whole number
    // of blocks, and for a key of 11 bytes or fewer), "Not enough data in authentication token.",
    // "Authentication token message digest did not validate." or what base64Decode throws.
    // The results are written in the order timestamp, user, attributes, each once it was read: a
    // failure after the digest was found good can leave the first of them written.
    static void decryptAuthToken(const std::string& token, std::string& user,
                                 std::map<std::string, std::string>& attributes, long& timestamp,
                                 rsa_st* key);
};

}  // namespace tarnutil
#endif  // TARNUTIL_CRYPTOUTIL_H
