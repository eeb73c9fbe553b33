# Gives the header's plain comments the marks that Doxygen looks for, line by line: the conventions at the top become a
# list, sections become groups, descriptions of arguments become parameters, formulas become code.

# How the header is spelled, not what it offers.
/^#define KORVA_(API|INNER_CONST)/ { print ""; next }
/^#define KORVA_REFERENCE_API_VERSION/ { print $0 "  /**< A number of the version. */"; next }

# The conventions: a term in the first columns, then its text.
NR == 1 { print "/** @mainpage"; inConventions = 1; next }
inConventions {
  term = substr($0, 4, 13)
  if (sub(/^[A-Za-z0-9]+( types)?/, "**&**", term) && term ~ /\*\* +$/) $0 = " * - " term substr($0, 17)
  else if (term ~ /^ /) sub(/^ \* +/, " *   ")
}

# A section's title stands in a frame of its own.
/^\/\* ===/ { print groups++ ? "/** @} */" : ""; titleFollows = inSection = 1; next }
titleFollows { print "/** @defgroup section" groups " " substr($0, 4); titleFollows = 0; next }
/^ \* ===.*\*\/$/ { print " * @{ */"; inSection = 0; next }

# Three columns of indentation set off arguments and formulas, further ones continue an argument.
/^ \*   / && !inConventions {
  if (!inSection && match($0, /^ \*   [A-Za-z0-9]+(, [A-Za-z0-9]+)*  +[^ =]/)) {
    names = substr($0, 6)
    sub(/  .*/, "", names)
    described = substr($0, 6 + length(names))
    gsub(/, /, ",", names)
    $0 = " * @param " names described
    inArgument = 1
  } else if (!inArgument) {
    $0 = " *     " substr($0, 3)
  }
}
!/^ \*   / { inArgument = /^ \* @param/ }

groups && /^\/\*( |$)/ { sub(/^\/\*/, "/**") }
/;  \/\* .*\*\/$/ { sub(/\/\*/, "/**<") }
/^ \*\/$/ { inConventions = 0 }
{
  gsub(/(At the limits|Limits):/, "**&**")
  print
}

END { print "/** @} */"; print "/** @file */" }
