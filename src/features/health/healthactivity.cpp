#include "healthactivity.h"

#include "text/l.h"

#include <array>

using namespace Qt::StringLiterals;

namespace {

struct Activity {
    int raw;
    const char16_t *key;
    const char16_t *he;
    const char16_t *en;
    const char16_t *ru;
    const char16_t *symbol;
};

// Searched in this order; the first match wins.
constexpr std::array<Activity, 32> table{{
    {37, u"running", u"ריצה", u"Running", u"Бег", u"figure.run"},
    {52, u"walking", u"הליכה", u"Walking", u"Ходьба", u"figure.walk"},
    {13, u"cycling", u"רכיבה על אופניים", u"Cycling", u"Велосипед", u"bicycle"},
    {46, u"swimming", u"שחייה", u"Swimming", u"Плавание", u"figure.pool.swim"},
    {24, u"hiking", u"טיול רגלי", u"Hiking", u"Поход", u"figure.hiking"},
    {57, u"yoga", u"יוגה", u"Yoga", u"Йога", u"figure.yoga"},
    {66, u"pilates", u"פילאטיס", u"Pilates", u"Пилатес", u"figure.pilates"},
    {77, u"cardioDance", u"ריקוד אירובי", u"Cardio dance", u"Танцевальное кардио", u"figure.dance"},
    {20, u"functionalStrengthTraining", u"אימון כוח פונקציונלי", u"Functional strength",
     u"Функциональная сила", u"figure.strengthtraining.functional"},
    {50, u"traditionalStrengthTraining", u"אימון כוח", u"Strength training", u"Силовая",
     u"figure.strengthtraining.traditional"},
    {63, u"highIntensityIntervalTraining", u"אימון אינטרוולים", u"HIIT", u"ВИИТ",
     u"figure.highintensity.intervaltraining"},
    {59, u"coreTraining", u"אימון ליבה", u"Core training", u"Тренировка кора",
     u"figure.core.training"},
    {11, u"crossTraining", u"קרוספיט", u"Cross training", u"Кросс-тренинг",
     u"figure.cross.training"},
    {16, u"elliptical", u"אליפטיקל", u"Elliptical", u"Эллипс", u"figure.elliptical"},
    {35, u"rowing", u"חתירה", u"Rowing", u"Гребля", u"figure.rower"},
    {44, u"stairClimbing", u"עליית מדרגות", u"Stair climbing", u"Подъём по лестнице",
     u"figure.stair.stepper"},
    {73, u"mixedCardio", u"אירובי משולב", u"Mixed cardio", u"Смешанное кардио",
     u"figure.mixed.cardio"},
    {62, u"flexibility", u"גמישות", u"Flexibility", u"Гибкость", u"figure.flexibility"},
    {80, u"cooldown", u"שחרור", u"Cooldown", u"Заминка", u"figure.cooldown"},
    {8, u"boxing", u"אגרוף", u"Boxing", u"Бокс", u"figure.boxing"},
    {65, u"kickboxing", u"קיקבוקס", u"Kickboxing", u"Кикбоксинг", u"figure.kickboxing"},
    {28, u"martialArts", u"אומנויות לחימה", u"Martial arts", u"Единоборства",
     u"figure.martial.arts"},
    {48, u"tennis", u"טניס", u"Tennis", u"Теннис", u"figure.tennis"},
    {41, u"soccer", u"כדורגל", u"Soccer", u"Футбол", u"figure.soccer"},
    {6, u"basketball", u"כדורסל", u"Basketball", u"Баскетбол", u"figure.basketball"},
    {64, u"jumpRope", u"קפיצה בחבל", u"Jump rope", u"Скакалка", u"figure.jumprope"},
    {29, u"mindAndBody", u"גוף ונפש", u"Mind and body", u"Тело и разум", u"figure.mind.and.body"},
    {78, u"socialDance", u"ריקוד", u"Dance", u"Танцы", u"figure.socialdance"},
    {9, u"climbing", u"טיפוס", u"Climbing", u"Скалолазание", u"figure.climbing"},
    {45, u"surfingSports", u"גלישה", u"Surfing", u"Сёрфинг", u"figure.surfing"},
    {31, u"paddleSports", u"חתירת משוט", u"Paddling", u"Гребля на вёслах", u"oar.2.crossed"},
    {21, u"golf", u"גולף", u"Golf", u"Гольф", u"figure.golf"},
}};

const Activity *byKey(const QString &key)
{
    for (const Activity &a : table) {
        if (key == QStringView(a.key))
            return &a;
    }
    return nullptr;
}

} // namespace

namespace HealthActivity {

QString key(int rawType)
{
    for (const Activity &a : table) {
        if (a.raw == rawType)
            return QString::fromUtf16(a.key);
    }
    return u"other"_s;
}

int rawOf(const QString &keyOrExportName)
{
    QString key = keyOrExportName;
    const QString prefix = u"HKWorkoutActivityType"_s;
    if (key.startsWith(prefix) && key.size() > prefix.size()) {
        key = key.mid(prefix.size());
        key[0] = key[0].toLower();
    }
    const Activity *a = byKey(key);
    return a ? a->raw : otherType;
}

QString title(const QString &key)
{
    if (const Activity *a = byKey(key))
        return L::t(QString::fromUtf16(a->he), QString::fromUtf16(a->en),
                    QString::fromUtf16(a->ru));
    return L::t(u"אימון"_s, u"Workout"_s, u"Тренировка"_s);
}

QString symbol(const QString &key)
{
    const Activity *a = byKey(key);
    return a ? QString::fromUtf16(a->symbol) : u"figure.mixed.cardio"_s;
}

} // namespace HealthActivity
