#include "cli/shell/ArgumentWords.h"

#include "cli/shell/ObjectText.h"
#include "cli/shell/ShellError.h"
#include "cli/shell/Words.h"

#include <algorithm>
#include <cctype>

namespace Quarle::Cli {

namespace {

using ArgumentFace = Vellor::AttributeFace::ArgumentFace;

std::string listOf(ArgumentFaces faces) {
  std::string text;
  for (const ArgumentFace& face : faces) {
    text +=
        (text.empty() ? "" : ", ") + std::string(face.name) + ": " + typeText(typeOf(face.type));
  }
  return "(" + text + ")";
}

/// The name in front of the first equals sign, or nothing when that is part of a value.
std::string nameIn(const std::string& word) {
  const auto end = std::find_if_not(word.begin(), word.end(),
                                    [](unsigned char c) { return std::isalnum(c) != 0; });
  const bool isName = end != word.begin() && end != word.end() && *end == '=' &&
                      std::isalpha(static_cast<unsigned char>(word[0])) != 0;
  return isName ? std::string(word.begin(), end) : "";
}

const ArgumentFace& faceNamed(ArgumentFaces faces,
                              const std::string& name,
                              const std::string& signature) {
  const auto face = std::find_if(faces.begin(), faces.end(),
                                 [&name](const ArgumentFace& known) { return known.name == name; });
  if (face == faces.end()) {
    std::vector<std::string> names;
    for (const ArgumentFace& known : faces) {
      names.emplace_back(known.name);
    }
    throw ShellError("there is no argument " + Agent::inQuotes(name) + ", expected those of " +
                     signature + nearestText(name, names));
  }
  return *face;
}

}  // namespace

ArgumentFaces constructorOf(const Vellor::FwkType& type) {
  const Vellor::TypeFace* face = type.ownFace;
  return face == nullptr ? ArgumentFaces()
                         : ArgumentFaces(face->constructorArgument, face->constructorArguments);
}

std::string signatureOf(const Vellor::AttributeFace& operation) {
  std::string text = std::string(operation.name) + listOf(argumentsOf(operation));
  if (typeOf(operation.type) != nullptr) {
    text += " -> " + typeText(typeOf(operation.type));
  }
  return operation.isConstOperation ? text + ", changes nothing" : text;
}

std::string constructorText(const Vellor::FwkType& type) {
  return typeText(&type) + listOf(constructorOf(type));
}

std::string positionsOf(ArgumentFaces faces, const std::string& signature) {
  return std::to_string(faces.size()) + (faces.size() == 1 ? " argument: " : " arguments: ") +
         signature;
}

void addArguments(const Session& session,
                  ArgumentFaces faces,
                  const std::string& signature,
                  std::span<const std::string> words,
                  std::vector<Vellor::GenericIf::Argument>& arguments) {
  if (words.size() != faces.size()) {
    throw ShellError(std::to_string(words.size()) + " given, expected " +
                     positionsOf(faces, signature));
  }
  for (std::size_t i = 0; i < words.size(); ++i) {
    const std::string name = nameIn(words[i]);
    const ArgumentFace& face = name.empty() ? faces[i] : faceNamed(faces, name, signature);
    const std::string value = name.empty() ? words[i] : words[i].substr(name.size() + 1);
    arguments.emplace_back(Vellor::String8(name), faceOf(session, typeOf(face.type), value));
  }
}

}  // namespace Quarle::Cli
