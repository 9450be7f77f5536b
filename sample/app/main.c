/* Just enough of an app to have symbols worth reading. */
struct basket {
    int apples;
    const char* owner;
};

static int weight_in_grams(const struct basket* basket) { return basket->apples * 120; }

int main(int argc, char** argv) {
    const struct basket basket = {argc, argv[0]};
    return weight_in_grams(&basket) > 1000;
}
