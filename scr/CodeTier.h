#pragma once

namespace SCR {

/// How scripts run. All tiers do the same; what runs often enough is made faster in the later ones.
enum class CodeTier {
    Tree,      ///< by the nodes of the tree alone
    Portable,  ///< what runs often as operations that are interpreted, on any processor
    Native,    ///< what runs often as code of the processor
};

}  // namespace SCR
