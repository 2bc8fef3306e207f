#pragma once
/// Message identifiers and the exception that carries them. This is the part
/// of the host's error interface that both hosts share: a kind is a
/// namespace, a class name and its arguments; its text comes from the
/// catalogue and is rendered the same way in every host.

#include <boost/variant.hpp>

#include <cstddef>
#include <cstdint>
#include <exception>
#include <string>
#include <vector>

namespace Quarn {

/// One argument of a kind: text, or a signed 64-bit integer.
using MsgArg = boost::variant<std::string, std::u16string, std::int64_t>;

/// The base of every error kind: which kind (its index in the catalogue) and
/// the arguments its message shows.
class BaseMsgID {
 public:
  BaseMsgID(std::size_t index, std::vector<MsgArg> args) : index_(index), args_(std::move(args)) {}
  virtual ~BaseMsgID() = default;

  std::size_t index() const { return index_; }
  /// The identifier as the host sees it, e.g. "Quarn:imagesci:Tiff:badFileId".
  const char* identifier() const;
  const std::vector<MsgArg>& arguments() const { return args_; }
  /// The catalogue's text with the arguments put in, as UTF-8.
  std::string message() const;
  std::u16string unicode_message() const;

 private:
  std::size_t index_;
  std::vector<MsgArg> args_;
};

/// The interface of exceptions that carry a message identifier.
class IMsgIDException {
 public:
  virtual ~IMsgIDException() = default;
  virtual const char* GetID() const = 0;
  virtual std::u16string GetUnicodeMessageTxt() const = 0;
  virtual const BaseMsgID& GetBaseMsgIDObj() const = 0;
};

/// Carries one kind. One instantiation per kind; they differ only in it.
template <class Kind>
class Exception final : public IMsgIDException, public std::exception {
 public:
  explicit Exception(Kind kind) : kind_(std::move(kind)), what_(kind_.message()) {}

  const char* what() const noexcept override { return what_.c_str(); }
  const char* GetID() const override { return kind_.identifier(); }
  std::u16string GetUnicodeMessageTxt() const override { return kind_.unicode_message(); }
  const BaseMsgID& GetBaseMsgIDObj() const override { return kind_; }
  const Kind& kind() const { return kind_; }

 private:
  Kind kind_;
  std::string what_;
};

}  // namespace Quarn
