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
  valueOf(partner::sign(options));
  std::cout << "signed '" << options.directory.string() << "' for the device " << options.duid
            << '\n';
}

void addSign(CLI::App& partner) {
  CLI::App* sign = partner.add_subcommand("sign", "Write a signed request for one device");
  const auto options = std::make_shared<partner::SignOptions>();
  sign->add_option("--key", options->key, "Private key of the authority, RSA 2048")
      ->required()
      ->type_name("PRIVATE.pem");
  sign->add_option("--duid", options->duid, "Unique id of the device")->required()->type_name("ID");
  sign->add_option("--note", options->note, "Additional text, for example a date");
  sign->add_flag("--replace", options->replace, "Replace existing files");
  sign->add_option("DIR", options->directory, "Folder to write the two files to")->required();
  sign->callback([options] { runSign(*options); });
}

void addVerify(CLI::App& partner) {
  CLI::App* verify =
      partner.add_subcommand("verify", "Let the plug-in check a request, as on a device");
  const auto options = std::make_shared<partner::VerifyOptions>();
  verify->add_option("--key", options->key, "Public key of the authority")
      ->required()
      ->type_name("PUBLIC.pem");
  verify->add_option("--duid", options->duid, "Unique id of the device")
      ->required()
      ->type_name("ID");
  verify->add_option("--plugin", options->plugin, "Plug-in to load; default: this program's")
      ->type_name("FILE");
  verify->add_option("DIR", options->directory, "Folder of the two files")->required();
  verify->callback([options] { endCommand(partner::verify(*options)); });
}

}  // namespace

void addPartnerCommand(CLI::App& app) {
  CLI::App* partner = app.add_subcommand("partner", kPartnerSummary);
  partner->require_subcommand(1);
  addSign(*partner);
  addVerify(*partner);
}

}  // namespace quillon::cli
