#include "quillon/cli/partner_command.h"

#include <iostream>
#include <memory>

#include "quillon/base/report.h"
#include "quillon/cli/command.h"
#include "quillon/partner/sign.h"
#include "quillon/partner/verify.h"

namespace quillon::cli {
namespace {

void runSign(const partner::SignOptions& options) {
  if (auto signedIt = partner::sign(options); !signedIt) {
    endCommand(report(signedIt.error()));
  }
  std::cout << "signed '" << options.directory.string() << "' for the device " << options.duid
            << '\n';
}

void addSign(CLI::App& partner) {
  CLI::App* sign = partner.add_subcommand("sign", "Make a request for a device, and sign it");
  const auto options = std::make_shared<partner::SignOptions>();
  sign->add_option("--key", options->key, "The signing authority's private key, RSA 2048 in PEM")
      ->required()
      ->type_name("PRIVATE.pem");
  sign->add_option("--duid", options->duid, "The device's unique id")->required()->type_name("ID");
  sign->add_option("--note", options->note, "What the request says besides, say a date");
  sign->add_flag("--replace", options->replace, "Replace the two files where they exist");
  sign->add_option("DIR", options->directory, "Where the two files go")->required();
  sign->callback([options] { runSign(*options); });
}

void addVerify(CLI::App& partner) {
  CLI::App* verify =
      partner.add_subcommand("verify", "Ask the plug-in, as a device with that key and id would");
  const auto options = std::make_shared<partner::VerifyOptions>();
  verify->add_option("--key", options->key, "The signing authority's public key in PEM")
      ->required()
      ->type_name("PUBLIC.pem");
  verify->add_option("--duid", options->duid, "The device's unique id")
      ->required()
      ->type_name("ID");
  verify
      ->add_option("--plugin", options->plugin, "Plug-in to ask; else the one built with this tool")
      ->type_name("FILE");
  verify->add_option("DIR", options->directory, "Holds the two files")->required();
  verify->callback([options] { endCommand(partner::verify(*options)); });
}

}  // namespace

void addPartnerCommand(CLI::App& app) {
  CLI::App* partner =
      app.add_subcommand("partner", "Sign partner packages, and ask the plug-in about them");
  partner->require_subcommand(1);
  addSign(*partner);
  addVerify(*partner);
}

}  // namespace quillon::cli
