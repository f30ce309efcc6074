" Scripts of the Kestrel language. editors/generate writes the lists of words.
if exists('b:current_syntax')
  finish
endif

syntax iskeyword @,48-57,_,.
syntax case match

syntax match kestrelName "\<[A-Za-z_][A-Za-z0-9_.]*"
syntax match kestrelCall "\<[A-Za-z_][A-Za-z0-9_.]*\ze\s*("
syntax match kestrelModule "\<[A-Za-z_][A-Za-z0-9_.]*::[A-Za-z_][A-Za-z0-9_.]*"
syntax keyword kestrelKeywords break case const default do else for function if regExprSwitch return switch use while
syntax keyword kestrelTypes Bool Date Decimal Ebuf File Flist Iterator Long Nexid Nxid String
syntax keyword kestrelOperators AND OR and or
syntax keyword kestrelConstants INVALID_DECIMAL INVALID_NEXID KESTREL_VERSION MAX_DATE MIN_DATE NULL_NEXID ROUND_BANKERS ROUND_DOWN ROUND_PLAIN ROUND_UP STRIP_BOTH STRIP_LEADING STRIP_TRAILING false true
syntax keyword kestrelBuiltins arrayClear arraySize currentTimeInMillis dateAdd dateDiff dateIsValid dateToStr decimalAbs decimalToLong decimalToStr decimalToStrHex edrArrayIndex edrDate edrDecimal edrDeleteField edrEmptyInput edrLong edrMissingInput edrString fileClose fileCopy fileDelete fileEof fileFlush fileIsOpen fileOpen fileReadLine fileRename fileSeek fileTell fileWriteLong fileWriteStr hashClear hashContains hashKeys hashRemove length logStdout longAbs longDecode longToDecimal longToHexStr longToStr mutexAcquire mutexCreate mutexDestroy mutexRelease nexidDb nexidId nexidRev nexidSet nexidToStr nexidType outputFile recordDrop recordNumber recordReject recordText recordUnique recordWrite replace round scriptUsable size sleep sqrt stopJob strByteValue strDecode strEndsWith strHexStrToStr strHexToDecimal strHexToLong strLength strMatch strPad strReplace strSearch strSearchRegExpr strSplit strStartsWith strStrToHexStr strStrip strSubstr strToDate strToDecimal strToLong strToLower strToUpper substr sysGetEnv sysdate system tableField tableFind tableNext toLower toUpper total totalCount totalMax totalMin totalSet trunc
syntax match kestrelInclude "^\s*include\ze\s\+\""
syntax match kestrelLine "^#line\s.*$"
syntax match kestrelNumber "\<\d\+\(\.\d\+\)\?\>\|\.\d\+\>"
syntax match kestrelSign "[-+*/%=<>!~]\+"
syntax match kestrelBracket "[][(){},:;]"
syntax match kestrelEscape "\\." contained
syntax region kestrelString start=+"+ skip=+\\.+ end=+"+ contains=kestrelEscape
syntax keyword kestrelTodo TODO FIXME contained
syntax match kestrelComment "//.*$" contains=kestrelTodo,@Spell
syntax region kestrelComment start="/\*" end="\*/" contains=kestrelTodo,@Spell

highlight default link kestrelName Identifier
highlight default link kestrelCall Function
highlight default link kestrelModule Function
highlight default link kestrelKeywords Statement
highlight default link kestrelTypes Type
highlight default link kestrelOperators Operator
highlight default link kestrelConstants Constant
highlight default link kestrelBuiltins Special
highlight default link kestrelInclude Include
highlight default link kestrelLine PreProc
highlight default link kestrelNumber Number
highlight default link kestrelSign Operator
highlight default link kestrelBracket Delimiter
highlight default link kestrelEscape SpecialChar
highlight default link kestrelString String
highlight default link kestrelTodo Todo
highlight default link kestrelComment Comment

" Long texts and comments may have begun before the window.
syntax sync minlines=200
let b:current_syntax = 'kestrel'
