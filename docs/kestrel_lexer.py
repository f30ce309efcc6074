"""Colours of scripts in the manual; a hook of mkdocs, which loads this file. editors/generate
writes the lists of words."""
from pygments.lexer import RegexLexer, words
from pygments.lexers import _lexer_cache, _mapping
from pygments.token import (Comment, Keyword, Name, Number, Operator, Punctuation, String, Text)

KEYWORDS = "break|case|const|default|do|else|for|function|if|regExprSwitch|return|switch|use|while"
TYPES = "Bool|Date|Decimal|Ebuf|File|Flist|Iterator|Long|Nexid|Nxid|String"
OPERATORS = "AND|OR|and|or"
CONSTANTS = "INVALID_DECIMAL|INVALID_NEXID|KESTREL_VERSION|MAX_DATE|MIN_DATE|NULL_NEXID|ROUND_BANKERS|ROUND_DOWN|ROUND_PLAIN|ROUND_UP|STRIP_BOTH|STRIP_LEADING|STRIP_TRAILING|false|true"
BUILTINS = "arrayClear|arraySize|currentTimeInMillis|dateAdd|dateDiff|dateIsValid|dateToStr|decimalAbs|decimalToLong|decimalToStr|decimalToStrHex|edrArrayIndex|edrDate|edrDecimal|edrDeleteField|edrEmptyInput|edrLong|edrMissingInput|edrString|fileClose|fileCopy|fileDelete|fileEof|fileFlush|fileIsOpen|fileOpen|fileReadLine|fileRename|fileSeek|fileTell|fileWriteLong|fileWriteStr|hashClear|hashContains|hashKeys|hashRemove|length|logStdout|longAbs|longDecode|longToDecimal|longToHexStr|longToStr|mutexAcquire|mutexCreate|mutexDestroy|mutexRelease|nexidDb|nexidId|nexidRev|nexidSet|nexidToStr|nexidType|outputFile|recordDrop|recordNumber|recordReject|recordText|recordUnique|recordWrite|replace|round|scriptUsable|size|sleep|sqrt|stopJob|strByteValue|strDecode|strEndsWith|strHexStrToStr|strHexToDecimal|strHexToLong|strLength|strMatch|strPad|strReplace|strSearch|strSearchRegExpr|strSplit|strStartsWith|strStrToHexStr|strStrip|strSubstr|strToDate|strToDecimal|strToLong|strToLower|strToUpper|substr|sysGetEnv|sysdate|system|tableField|tableFind|tableNext|toLower|toUpper|total|totalCount|totalMax|totalMin|totalSet|trunc"

identifier = r"[A-Za-z_][A-Za-z0-9_.]*"


def _words(alternatives, suffix=""):
    return words(alternatives.split("|"), prefix=r"(?<![\w.])", suffix=r"(?![\w.])" + suffix)


class KestrelLexer(RegexLexer):
    name = "Kestrel"
    aliases = ["kestrel"]
    filenames = ["*.ks"]
    tokens = {
        "root": [
            (r"\s+", Text.Whitespace),
            (r"//.*?$", Comment.Single),
            (r"/\*", Comment.Multiline, "comment"),
            (r"^#line[ \t].*?$", Comment.Preproc),
            (r"^([ \t]*)(include)(?=[ \t]+\")", Keyword.Namespace),
            (r'"', String, "text"),
            (r"\d*\.\d+", Number.Float),
            (r"\d+", Number.Integer),
            (rf"{identifier}::{identifier}", Name.Function),
            (_words(KEYWORDS), Keyword),
            (_words(TYPES), Keyword.Type),
            (_words(OPERATORS), Operator.Word),
            (_words(CONSTANTS), Keyword.Constant),
            (_words(BUILTINS, r"(?=\s*\()"), Name.Builtin),
            (rf"{identifier}(?=\s*\()", Name.Function),
            (identifier, Name),
            (r"=~|==|!=|<=|>=|[-+*/%=<>]", Operator),
            (r"[(){}\[\],;:]", Punctuation),
        ],
        "comment": [(r"\*/", Comment.Multiline, "#pop"), (r"[^*]+|\*", Comment.Multiline)],
        "text": [(r'"', String, "#pop"), (r"\\.", String.Escape), (r'[^"\\]+|\\', String)],
    }


_lexer_cache["Kestrel"] = KestrelLexer
_mapping.LEXERS["KestrelLexer"] = ("kestrel_lexer", "Kestrel", ("kestrel",), ("*.ks",), ())
