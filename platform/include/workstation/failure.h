// A failure that a person reads: what went wrong, naming the thing, and what to do about it.
#pragma once

#include <string>
#include <tl/expected.hpp>

namespace quillon {

struct Failure {
  std::string what;    // "no package 'org.example.clock' is installed"
  std::string remedy;  // "install it: quillon package install MANIFEST.toml"; may be empty
};

template <typename T>
using Expected = tl::expected<T, Failure>;

inline tl::unexpected<Failure> fail(std::string what, std::string remedy = {}) {
  return tl::unexpected<Failure>(Failure{std::move(what), std::move(remedy)});
}

}  // namespace quillon
