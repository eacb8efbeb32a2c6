// The partner signature policy: whether the libraries on a partner's mount may be used here.
// docs/partner-packages.md has the files and what the policy does and does not defend against.
//
// The exported check_signature asks these in turn. Each call reads files and configuration anew,
// keeps nothing, writes its reason for a refusal to the log once, and leaves the crypto library's
// error queue as it was.
//
// Thread safety: none of them holds state; any thread may call them. A path that is null or leads
// to neither a regular file nor a directory counts as a file that cannot be opened, so a FIFO
// blocks nobody.
#pragma once

// The three checks in order, up to the first that fails. True grants access.
bool verify_signature_file(const char* publicKeyPath, const char* signaturePath,
                           const char* requestPath);

// 1 when the first 256 bytes of the signature file are a signature over the whole request file with
// SHA-256, made with the private half of the PEM public key; else 0.
int verify_signature(const char* publicKeyPath, const char* signaturePath, const char* requestPath);

// 1 when the request's first field, up to the first ":" or the end, is this device's unique id;
// else 0. A field of 100 bytes or more is nobody's id.
int verify_duid(const char* requestPath);

// Always 1: a request does not expire. The place of a later rule about dates.
int verify_date(const char* requestPath);
