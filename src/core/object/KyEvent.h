// KyEvent and the object events: deferred delete (type 2) and child added or
// removed (types 3 and 4).
//
// An event is a plain record with a type code, an accepted flag and an
// in-delivery flag that the loop sets while the event is being delivered. It
// belongs to one thread at a time: whoever posts an event gives it up to the
// loop, which deletes it after delivery; sendEvent leaves it with the caller.
// Every event class can copy itself through clone().
#pragma once

class KyObject;

/// Base of every event delivered to a KyObject.
class KyEvent {
public:
    /// Type codes of the object events; widget events use 5 and up.
    enum Type : int {
        None = 0,
        DeferredDelete = 2,
        ChildAdded = 3,
        ChildRemoved = 4,
        /// First code free for application-defined events.
        User = 1000,
    };

    explicit KyEvent(int type) : type_(type) {}
    virtual ~KyEvent();
    KyEvent(const KyEvent&) = default;
    KyEvent& operator=(const KyEvent&) = default;

    int type() const { return type_; }
    bool isAccepted() const { return accepted_; }
    void setAccepted(bool accepted) { accepted_ = accepted; }
    void accept() { accepted_ = true; }
    void ignore() { accepted_ = false; }
    /// True while the event is inside KyCoreApplication::notify.
    bool inDelivery() const { return inDelivery_; }
    void setInDelivery(bool inDelivery) { inDelivery_ = inDelivery; }

    /// A heap copy of the event, of the same dynamic type; the caller owns it.
    virtual KyEvent* clone() const;

private:
    int type_;
    bool accepted_ = false;
    bool inDelivery_ = false;
};

/// Asks the receiver to delete itself (type 2); posted by KyObject::deleteLater.
class KyDeferredDeleteEvent : public KyEvent {
public:
    KyDeferredDeleteEvent() : KyEvent(DeferredDelete) {}
    KyEvent* clone() const override;
};

/// Tells an object that a child joined (type 3) or left (type 4) it.
class KyChildEvent : public KyEvent {
public:
    /// type is ChildAdded or ChildRemoved.
    KyChildEvent(int type, KyObject* child) : KyEvent(type), child_(child) {}
    KyObject* child() const { return child_; }
    bool added() const { return type() == ChildAdded; }
    bool removed() const { return type() == ChildRemoved; }
    KyEvent* clone() const override;

private:
    KyObject* child_;
};
