// A clang-tidy plugin: limits the walk over a source to what this project declares. Without it
// every check looks at every node of every library header first, which is nine tenths of its time,
// only to have what it finds there thrown away.

#include <vector>

#include <clang-tidy/ClangTidyCheck.h>
#include <clang-tidy/ClangTidyModule.h>
#include <clang-tidy/ClangTidyModuleRegistry.h>
#include <clang/AST/ASTContext.h>
#include <clang/ASTMatchers/ASTMatchFinder.h>
#include <clang/Basic/SourceManager.h>

namespace {

class OwnCode final : public clang::tidy::ClangTidyCheck {
 public:
  using ClangTidyCheck::ClangTidyCheck;

  void registerMatchers(clang::ast_matchers::MatchFinder* finder) override {
    // The walk begins at this node and asks for its scope after the node was matched.
    finder->addMatcher(clang::ast_matchers::translationUnitDecl(), this);
  }

  void check(const clang::ast_matchers::MatchFinder::MatchResult& result) override {
    const clang::SourceManager& sources = *result.SourceManager;
    std::vector<clang::Decl*> own;
    for (clang::Decl* declaration : result.Context->getTranslationUnitDecl()->decls()) {
      const auto place = sources.getExpansionLoc(declaration->getLocation());
      if (place.isValid() && !sources.isInSystemHeader(place)) {
        own.push_back(declaration);
      }
    }
    result.Context->setTraversalScope(own);
  }
};

class Module final : public clang::tidy::ClangTidyModule {
 public:
  void addCheckFactories(clang::tidy::ClangTidyCheckFactories& factories) override {
    factories.registerCheck<OwnCode>("marigold-own-code");
  }
};

const clang::tidy::ClangTidyModuleRegistry::Add<Module> registration("marigold", "");

}  // namespace
