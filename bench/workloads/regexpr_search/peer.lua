local texts = {}
for line in io.lines("texts.txt") do texts[#texts + 1] = line end
local sum, find = 0, string.find
for pass = 1, 60 do
    for i = 1, #texts do
        sum = sum + (find(texts[i], "[A-Z][A-Z][0-9]+%-[0-9]+") or 0) - 1
    end
end
print(sum)
