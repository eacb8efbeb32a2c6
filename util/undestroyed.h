// Storage of a variable that lives until the process ends: its destructor does not run at exit,
// when other threads may still use it.
//
//   extern std::string name;   // in the header
//
//   Undestroyed<std::string> storage asm("name_storage");   // in one source file
//   [[gnu::alias("name_storage")]] extern std::string name;
//
// The alias makes the variable a string. A reference to a string that is never deleted would be
// another kind of symbol: a source file that declares the string would read the reference as one.
#pragma once

template <typename Type>
union Undestroyed {
  constexpr Undestroyed() : value() {}
  constexpr ~Undestroyed() {}
  Undestroyed(const Undestroyed&) = delete;
  Undestroyed& operator=(const Undestroyed&) = delete;

  Type value;
};
