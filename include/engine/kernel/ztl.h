#pragma once

#include <list>
#include <map>
#include <set>
#include <string>
#include <vector>

/// The engine's string and container names, as they stand in exported signatures.
namespace ztl {

template <class Char>
using string_base = std::basic_string<Char>;
template <class Char>
using tstring_base = std::basic_string<Char>;
template <class Value>
using vector = std::vector<Value>;
template <class Value>
using list = std::list<Value>;
template <class Key, class Value>
using map = std::map<Key, Value>;
template <class Value>
using set = std::set<Value>;

}  // namespace ztl

namespace fs {

using string = ztl::string_base<char>;

}  // namespace fs
