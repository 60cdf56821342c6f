#include "tool/queries.h"

#include <algorithm>
#include <cstdio>
#include <memory>

#include "engine/collection_extras.h"
#include "engine/log_object.h"
#include "base/plist_io.h"
#include "tool/engine_choice.h"
#include "tool/exit_status.h"
#include "tool/source_bundle.h"

namespace velmar::tool {

Value sortedNames(const Value& names) {
  std::vector<std::string> list = names.strings();
  sortIgnoringCase(list);
  return Value::stringArray(list);
}

void printReply(const Value& reply) {
  std::string xml = toXml(reply);
  std::fwrite(xml.data(), 1, xml.size(), stdout);
  std::fflush(stdout);
}

int runQuery(const ToolRequest& request) {
  LogObject& log = LogObject::sharedLogger();

  // Without a bundle the class's built-in tables answer.
  if (request.command == Command::KnownVariants ||
      (request.command == Command::KnownProducts && !request.source)) {
    EngineChoice choice = chooseEngine(request.engine, nullptr);
    if (!choice.engineClass) {
      log.Log(choice.error);
      return kExitUsage;
    }
    printReply(Value::stringArray(request.command == Command::KnownVariants
                                      ? choice.engineClass->knownFactoryVariants()
                                      : choice.engineClass->knownProducts()));
    return kExitSuccess;
  }

  SourceBundle source;
  if (int status = source.open(*request.source)) return status;
  // Creating the engine a strip would use analyses the bundle, which
  // narrows the class's products table to it.
  const EngineClass* engineClass = nullptr;
  std::unique_ptr<Stripper> engine = createEngine(request, source.view(), &engineClass);
  if (!engine) return kExitUsage;

  switch (request.command) {
    case Command::KnownProducts:
      printReply(Value::stringArray(engineClass->knownProducts()));
      break;
    case Command::ValidProducts: {
      Value reply = Value::makeDict();
      reply.set("validProducts", sortedNames(engine->validProducts()));
      printReply(reply);
      break;
    }
    case Command::ValidVariants: {
      Value reply = Value::makeDict();
      reply.set("validVariants", sortedNames(engine->validFactoryVariants()));
      printReply(reply);
      break;
    }
    default:
      return kExitUsage;
  }
  return kExitSuccess;
}

}  // namespace velmar::tool
