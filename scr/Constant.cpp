#include "scr/Constant.h"

#include "scr/message/Messages.h"
#include "scr/parser/ParseErrors.h"

namespace SCR {

Node* LongConstant::promote(int typeWord) const {
    if (typeWord == TypeCode::Decimal) return new DecimalConstant(FND::Decimal(value_));
    SCR_YaccError(Messages::longPromotionNotSupported(datatypeAsString(typeWord)));
    return nullptr;
}

}  // namespace SCR
