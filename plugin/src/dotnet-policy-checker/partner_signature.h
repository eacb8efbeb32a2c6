// The partner signature policy: decides whether the libraries on a partner's mount may be used on
// this device. docs/partner-packages.md describes the files and the threat model.
//
// The exported check_signature calls these functions. Each call reads the files and the
// configuration again, keeps no state, logs the reason for a refusal once, and restores the crypto
// library's error queue.
//
// Thread safety: the functions keep no state; any thread may call them. A path that is null, or
// that is neither a regular file nor a directory, is treated as a file that cannot be opened. A
// FIFO therefore never blocks the caller.
#pragma once

// Runs the three checks below in order, up to the first one that fails. Returns true if all
// succeed.
bool verify_signature_file(const char* publicKeyPath, const char* signaturePath,
                           const char* requestPath);

// Returns 1 if the first 256 bytes of the signature file are a SHA-256 signature of the complete
// request file, made with the private key that belongs to the PEM public key. Otherwise returns 0.
int verify_signature(const char* publicKeyPath, const char* signaturePath, const char* requestPath);

// Returns 1 if the first field of the request, up to the first ":" or the end, is the unique id of
// this device. Otherwise returns 0. A field of 100 bytes or more never matches.
int verify_duid(const char* requestPath);

// Always returns 1: a request does not expire. A future rule about dates belongs here.
int verify_date(const char* requestPath);
