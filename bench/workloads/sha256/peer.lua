local isThere, digest = pcall(require, "openssl.digest")
if not isThere then
    os.exit(77)
end
local new = digest.new
local format, byte, zeros, last = string.format, string.byte, 0, ""
local hex = {}
for i = 0, 255 do
    hex[string.char(i)] = format("%02x", i)
end
for i = 1, 1000000 do
    last = new("sha256"):final(tostring(i)):gsub(".", hex)
    if byte(last) == 48 and byte(last, 2) == 48 then
        zeros = zeros + 1
    end
end
print(zeros .. " " .. last)
