from hashlib import sha256


def main():
    zeros, digest = 0, ""
    for i in range(1, 1000001):
        digest = sha256(b"%d" % i).hexdigest()
        if digest.startswith("00"):
            zeros += 1
    print(zeros, digest)


main()
