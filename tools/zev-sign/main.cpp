// zev-sign: Ed25519 keys, signed bundle manifests and update signatures.
//
//   zev-sign keygen <secret-key-file>          new key pair; writes the secret
//                                              (mode 0600), prints the public key
//   zev-sign public-key <secret-key-file>      prints the public key (base64)
//   zev-sign manifest <bundle> <secret-key-file>
//                                              writes the bundle's signed manifest
//   zev-sign verify-manifest <bundle> <public-key-base64>
//                                              checks a bundle against its manifest
//   zev-sign sign <file> <secret-key-file>     prints the base64 signature of the
//                                              file's bytes (an update feed's
//                                              edSignature)
//   zev-sign verify <file> <signature-base64> <public-key-base64>
//
// Keys and signatures are base64 (standard alphabet, padded); a secret key
// file holds the 32-byte seed. Exit status 0 on success, 1 on a failed check,
// 2 on misuse or an error.
#include <cstdio>
#include <exception>
#include <fstream>
#include <iostream>
#include <iterator>
#include <string>
#include <vector>

#include "platform/linux/bundle_manifest.h"

namespace {

namespace manifest = zev::manifest;

std::string readWholeFile(const std::string& path) {
  std::ifstream in(path, std::ios::binary);
  if (!in) throw manifest::ManifestError("cannot read " + path);
  return std::string(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
}

int usage() {
  std::cerr << "usage: zev-sign keygen <secret-key-file>\n"
               "       zev-sign public-key <secret-key-file>\n"
               "       zev-sign manifest <bundle> <secret-key-file>\n"
               "       zev-sign verify-manifest <bundle> <public-key>\n"
               "       zev-sign sign <file> <secret-key-file>\n"
               "       zev-sign verify <file> <signature> <public-key>\n";
  return 2;
}

int run(const std::vector<std::string>& args) {
  if (args.empty()) return usage();
  const std::string& verb = args[0];
  if (verb == "keygen" && args.size() == 2) {
    const manifest::KeyPair pair = manifest::generateKeyPair();
    manifest::writeSecretKeyFile(args[1], pair.secretKey);
    std::cout << manifest::toBase64(pair.publicKey) << '\n';
    return 0;
  }
  if (verb == "public-key" && args.size() == 2) {
    std::cout << manifest::toBase64(manifest::publicKeyOf(manifest::readSecretKeyFile(args[1])))
              << '\n';
    return 0;
  }
  if (verb == "manifest" && args.size() == 3) {
    manifest::writeSignedManifest(args[1], manifest::readSecretKeyFile(args[2]));
    return 0;
  }
  if (verb == "verify-manifest" && args.size() == 3) {
    if (const auto problem = manifest::verifyBundle(args[1], args[2])) {
      std::cerr << "zev-sign: " << *problem << '\n';
      return 1;
    }
    return 0;
  }
  if (verb == "sign" && args.size() == 3) {
    const manifest::SecretKey key = manifest::readSecretKeyFile(args[2]);
    std::cout << manifest::sign(readWholeFile(args[1]), key) << '\n';
    return 0;
  }
  if (verb == "verify" && args.size() == 4) {
    if (!manifest::verify(readWholeFile(args[1]), args[2], args[3])) {
      std::cerr << "zev-sign: signature does not verify\n";
      return 1;
    }
    return 0;
  }
  return usage();
}

}  // namespace

int main(int argc, char** argv) {
  try {
    return run(std::vector<std::string>(argv + 1, argv + argc));
  } catch (const std::exception& error) {
    std::cerr << "zev-sign: " << error.what() << '\n';
    return 2;
  }
}
